! agc: divides every sample by the amplitude of the samples around it.
module agc_job
  use, intrinsic :: iso_c_binding, only: c_associated, c_double, c_f_pointer, c_int, c_ptr
  use agc_math, only: agc_mean, agc_rms
  use module_tools
  use vorn_knl
  implicit none
  private
  public :: agc_state, read_parameters, warn_of_window, find

  ! What the module keeps from one call to the next.
  type :: agc_state
    integer(c_int) :: half    ! samples of a window to either side of a sample
    integer(c_int) :: measure ! agc_rms or agc_mean
    real(c_double) :: window  ! seconds
    real(c_double) :: level   ! that samples are brought to
    real(c_double), allocatable :: forward(:), backward(:) ! room for the arithmetic
  end type agc_state

contains

  !> `good` is false after a message. `history` describes the step.
  subroutine read_parameters(interval, state, history, good)
    integer(c_int), intent(in) :: interval ! microseconds
    type(agc_state), intent(inout) :: state
    character(len=:), allocatable, intent(out) :: history
    logical, intent(out) :: good
    real(c_double) :: window ! seconds
    character(len=40) :: mode
    logical :: found

    window = 0.5
    state%level = 1
    mode = 'rms'
    call knl_get_module_parameter('window', window, found)
    call knl_get_module_parameter('level', state%level, found)
    call knl_get_module_parameter('mode', mode, found)

    good = .false.
    if (.not. is_positive(window)) then
      call fail('agc', 'window is ' // text_of(window) // ' s; give a time above 0')
    else if (.not. is_positive(state%level)) then
      call fail('agc', 'level is ' // text_of(state%level) // '; give a number above 0')
    else if (mode /= 'rms' .and. mode /= 'mean') then
      call fail('agc', 'mode is "' // trim(mode) // '"; give rms or mean')
    else if (interval <= 0) then
      if (.not. job_has_failed()) call fail('agc', &
          'the input has no sample interval; the module before this one has to set it')
    else
      good = .true.
      state%window = window
      state%measure = merge(agc_rms, agc_mean, mode == 'rms')
      state%half = nint(min(window / (2.0e-6_c_double * interval), 1.0e9_c_double))
      history = 'agc window=' // text_of(window) // ' s mode=' // trim(mode)
      if (state%level /= 1) history = history // ' level=' // text_of(state%level)
    end if
  end subroutine read_parameters

  !> Such a window is often one of milliseconds without their unit.
  subroutine warn_of_window(state, length, interval)
    type(agc_state), intent(in) :: state
    integer(c_int), intent(in) :: length   ! samples of a trace
    integer(c_int), intent(in) :: interval ! microseconds
    real(c_double) :: duration             ! seconds

    duration = length * 1.0e-6_c_double * interval
    if (length <= 0 .or. state%window <= duration) return
    call knl_send_message(knl_message_warning, 'window is ' // text_of(state%window) // &
        ' s, longer than the traces, which have ' // text_of(duration) // &
        ' s: amplitudes along a trace are hardly balanced; give a shorter window, with its unit ' &
        // '(500 ms)')
  end subroutine warn_of_window

  pure logical function is_positive(value)
    real(c_double), intent(in) :: value

    is_positive = value > 0 .and. value <= huge(value)
  end function is_positive

  !> Null where preprocess has failed.
  subroutine find(state)
    type(agc_state), pointer, intent(out) :: state
    type(c_ptr) :: address

    nullify (state)
    address = kept_address()
    if (c_associated(address)) call c_f_pointer(address, state)
  end subroutine find
end module agc_job

integer function preprocess()
  use, intrinsic :: iso_c_binding, only: c_int, c_loc, c_ptr
  use agc_job
  use module_tools
  use vorn_knl
  implicit none
  type(agc_state), pointer :: state
  character(len=:), allocatable :: history
  type(c_ptr) :: input
  integer(c_int) :: length, interval, status
  logical :: good

  preprocess = 0
  call knl_get_input_trace_buffer(input, 1, status)
  if (status /= 0) then
    call fail('agc', 'the module has no input; connect one')
    return
  end if
  ! The modules before this one have described their outputs by now.
  call knl_get_trace_length(input, length, status)
  call knl_get_trace_sample_interval(input, interval, status)
  call knl_bld_output_trace_buffer(1, length, interval, input, status)
  if (status /= 0) then
    call fail('agc', 'the module has no output; connect one')
    return
  end if

  allocate (state)
  call read_parameters(interval, state, history, good)
  if (.not. good) then
    deallocate (state)
    return
  end if
  allocate (state%forward(max(length, 0)), state%backward(max(length, 0)), stat=status)
  if (status /= 0) then
    deallocate (state)
    call fail('agc', 'there is no memory for sums over traces of this length')
    return
  end if
  call warn_of_window(state, length, interval)
  call keep_address(c_loc(state))
  call knl_set_metadata_value(knl_scope_module, 'history$', history)
end function preprocess

! One trace in, one trace out.
integer function process()
  use, intrinsic :: iso_c_binding, only: c_float, c_int, c_ptr
  use agc_job
  use agc_math, only: agc_balance
  use vorn_knl
  implicit none
  type(agc_state), pointer :: state
  real(c_float), pointer :: samples(:)
  type(c_ptr) :: input, output
  integer(c_int) :: number, status

  process = 0
  call knl_get_output_trace_buffer(output, 1, status)
  if (status /= 0) return
  call find(state)
  if (.not. associated(state)) then
    call knl_set_data_channel_flag(output, knl_end_of_data) ! do not ask again
    return
  end if
  call knl_get_input_trace_buffer(input, 1, status)
  call knl_get_number_of_traces(output, number, status)
  number = number + 1
  ! Header, samples, and the flag that says whether this is the last trace.
  call knl_copy_trace_to_trace(input, output, .true., .true., status, 1, number)
  call knl_get_trace_samples(output, samples, status, number)
  if (status == 0) call agc_balance(samples, min(size(samples), size(state%forward)), state%half, &
      state%measure, state%level, state%forward, state%backward)
end function process

integer function postprocess()
  use, intrinsic :: iso_c_binding, only: c_null_ptr
  use agc_job
  use module_tools, only: keep_address
  implicit none
  type(agc_state), pointer :: state

  postprocess = 0
  call find(state)
  if (.not. associated(state)) return
  deallocate (state)
  call keep_address(c_null_ptr)
end function postprocess
