! agc: divides every sample by the mean amplitude of the samples around it.
!
! What the module keeps from one call to the next are resources: the settings, and memory that the
! arithmetic needs. Variables of a Fortran module or with the attribute `save` would be shared by all
! modules of a job that use this library.

integer function preprocess()
  use, intrinsic :: iso_c_binding, only: c_double, c_int, c_loc, c_ptr, c_sizeof
  use agc_gain, only: agc_settings
  use vorn_knl
  implicit none
  type(agc_settings), target :: settings
  real(c_double), pointer :: sums(:)
  type(c_ptr) :: input
  integer(c_int) :: length, interval, status
  logical :: good

  preprocess = 0
  call knl_get_input_trace_buffer(input, 1, status)
  if (status /= 0) then
    call knl_send_message(knl_message_fatal, 'the module has no input; connect one')
    return
  end if
  ! The modules before this one have described their outputs by now.
  call knl_get_trace_length(input, length, status)
  call knl_get_trace_sample_interval(input, interval, status)
  call read_parameters(interval, settings, good)
  if (.not. good) return
  call knl_bld_output_trace_buffer(1, length, interval, input, status)
  if (status /= 0) then
    call knl_send_message(knl_message_fatal, 'the module has no output; connect one')
    return
  end if

  call knl_allocate_resource(sums, length + 1)
  if (.not. associated(sums)) return ! the kernel has said so
  call knl_set_module_resource('SUMS', sums, status)
  call knl_set_module_struct_resource('SETTINGS', c_loc(settings), &
      int(c_sizeof(settings), c_int), status)

contains

  !> `good` is false after a message.
  subroutine read_parameters(interval, settings, good)
    integer(c_int), intent(in) :: interval ! microseconds
    type(agc_settings), intent(out) :: settings
    logical, intent(out) :: good
    real :: window ! seconds
    logical :: found

    window = 0.5
    settings%level = 1.0
    call knl_get_module_parameter('WINDOW', window, found)
    call knl_get_module_parameter('LEVEL', settings%level, found)
    good = window > 0 .and. settings%level > 0 .and. interval > 0
    if (.not. window > 0) call complain('WINDOW', window)
    if (.not. settings%level > 0) call complain('LEVEL', settings%level)
    if (.not. interval > 0) call knl_send_message(knl_message_fatal, &
        'the input has no sample interval; the module before this one has to set it')
    if (good) settings%half = nint(min(window / (2.0e-6 * interval), 1.0e9))
  end subroutine read_parameters

  subroutine complain(name, value)
    character(len=*), intent(in) :: name
    real, intent(in) :: value
    character(len=80) :: text

    write (text, '(2a,g0,a)') name, ' is ', value, '; give a number above 0'
    call knl_send_message(knl_message_fatal, text)
  end subroutine complain
end function preprocess

! One trace in, one trace out.
integer function process()
  use, intrinsic :: iso_c_binding, only: c_double, c_int, c_loc, c_ptr
  use agc_gain, only: agc_settings, balance
  use vorn_knl
  implicit none
  type(agc_settings), target :: settings
  real(c_double), pointer :: sums(:)
  real, pointer :: samples(:)
  type(c_ptr) :: input, output
  integer(c_int) :: status
  logical :: found

  process = 0
  call knl_get_output_trace_buffer(output, 1, status)
  if (status /= 0) return
  call knl_get_module_struct_resource('SETTINGS', c_loc(settings), found)
  if (.not. found) then
    ! preprocess has failed: do not ask again.
    call knl_set_data_channel_flag(output, knl_end_of_data)
    return
  end if
  call knl_get_input_trace_buffer(input, 1, status)
  ! Header, samples, and the flag that says whether this is the last trace.
  call knl_copy_trace_to_trace(input, output, .true., .true., status)
  call knl_get_module_resource('SUMS', sums, found)
  call knl_get_trace_samples(output, samples, status)
  if (status == 0) call balance(samples, settings, sums)
end function process

integer function postprocess()
  use, intrinsic :: iso_c_binding, only: c_double
  use vorn_knl
  implicit none
  real(c_double), pointer :: sums(:)
  logical :: found

  call knl_get_module_resource('SUMS', sums, found)
  if (found) call knl_free_resource(sums)
  postprocess = 0
end function postprocess
