! agc: divides every sample by the amplitude of the samples around it.
module agc_job
  use, intrinsic :: iso_c_binding, only: c_double, c_float, c_int, c_int64_t, c_ptr
  use agc_math, only: agc_balance, agc_mean, agc_rms
  use agc_parameters, only: mode_rms, parameters, read_parameters
  use vorn_kit
  use vorn_knl
  implicit none
  private

  ! What the module keeps from one call to the next.
  type, extends(vorn_module), public :: agc_state
    type(parameters) :: set
    integer(c_int) :: half    ! samples of a window to either side of a sample
    integer(c_int) :: measure ! agc_rms or agc_mean
    real(c_double), allocatable :: forward(:), backward(:) ! room for the arithmetic
  contains
    procedure :: prepare
    procedure :: process
  end type agc_state

contains

  subroutine prepare(state, good)
    class(agc_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input
    integer(c_int) :: length, interval, status

    call vorn_required_input(input, good)
    ! The modules before this one have described their outputs by now.
    if (good) call vorn_build_required_output(input, good)
    if (good) call read_parameters(state%set, good)
    if (.not. good) return
    call knl_get_trace_length(input, length, status)
    call knl_get_trace_sample_interval(input, interval, status) ! microseconds
    good = interval > 0
    if (.not. good) then
      call vorn_fail_without_interval()
      return
    end if

    if (allocated(state%set%share) .and. length > 0) call choose_window(state%set, length, interval)
    state%half = nint(min(state%set%window / (2.0e-6_c_double * interval), 1.0e9_c_double))
    state%measure = merge(agc_rms, agc_mean, state%set%mode == mode_rms)
    call vorn_allow_memory(state%set%memory_limit, 16 * int(length, c_int64_t), &
        'the sums over traces of ' // vorn_to_text(length) // ' samples', 'shorten the traces', good)
    if (.not. good) return
    allocate (state%forward(max(length, 0)), state%backward(max(length, 0)), stat=status)
    good = status == 0
    if (.not. good) then
      call vorn_fail('not enough memory for sums over traces of this length')
      return
    end if
    call warn_of_window(state%set, length, interval)
    call vorn_add_history(history_of(state%set))
  end subroutine prepare

  !> The window as a share of the traces.
  subroutine choose_window(set, length, interval)
    type(parameters), intent(inout) :: set
    integer(c_int), intent(in) :: length   ! samples of a trace
    integer(c_int), intent(in) :: interval ! microseconds

    set%window = set%share / 100 * length * 1.0e-6_c_double * interval
    call knl_send_message(knl_message_information, 'window is ' // vorn_to_text(set%window) // &
        ' s, ' // vorn_to_text(set%share) // ' percent of the traces')
  end subroutine choose_window

  !> Such a window is often one of milliseconds without their unit.
  subroutine warn_of_window(set, length, interval)
    type(parameters), intent(in) :: set
    integer(c_int), intent(in) :: length   ! samples of a trace
    integer(c_int), intent(in) :: interval ! microseconds
    real(c_double) :: duration             ! seconds

    duration = length * 1.0e-6_c_double * interval
    if (length <= 0 .or. set%window <= duration) return
    call knl_send_message(knl_message_warning, 'window is ' // vorn_to_text(set%window) // &
        ' s, longer than the traces, which have ' // vorn_to_text(duration) // &
        ' s: amplitudes along a trace are hardly balanced; give a shorter window, with its unit ' &
        // '(500 ms)')
  end subroutine warn_of_window

  function history_of(set) result(line)
    type(parameters), intent(in) :: set
    character(len=:), allocatable :: line

    line = 'agc window=' // vorn_to_text(set%window) // ' s mode=' // &
        trim(merge('rms ', 'mean', set%mode == mode_rms))
    if (set%level /= 1) line = line // ' level=' // vorn_to_text(set%level)
  end function history_of

  ! One trace in, one trace out.
  subroutine process(state, good)
    class(agc_state), intent(inout) :: state
    logical, intent(inout) :: good
    real(c_float), pointer :: samples(:)
    type(c_ptr) :: input, output
    integer(c_int) :: number, status

    good = .true.
    call knl_get_input_trace_buffer(input, 1, status)
    call knl_get_output_trace_buffer(output, 1, status)
    call vorn_pass_trace(input, output, number)
    call knl_get_trace_samples(output, samples, status, number)
    if (status /= 0 .and. size(state%forward) > 0) call vorn_fail_without_samples(output, good)
    if (status == 0) call agc_balance(samples, min(size(samples), size(state%forward)), state%half, &
        state%measure, state%set%level, state%forward, state%backward)
  end subroutine process
end module agc_job

subroutine vorn_new_module(state)
  use agc_job, only: agc_state
  use vorn_kit, only: vorn_module
  implicit none
  class(vorn_module), pointer, intent(out) :: state

  allocate (agc_state :: state)
end subroutine vorn_new_module
