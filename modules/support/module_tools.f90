! What the Fortran modules of this folder have in common.
module module_tools
  use, intrinsic :: iso_c_binding, only: c_double, c_int, c_loc, c_null_ptr, c_ptr, c_sizeof
  use vorn_knl
  implicit none
  private
  public :: keep_address, kept_address, fail, job_has_failed, text_of

  integer(c_int), parameter, public :: knl_scope_job = 0, knl_scope_module = 1

contains

  !> Keeps the address of what the running module needs from one call to the next. It must not be a
  !> variable of a Fortran module: a job may use the library for several modules, and all of them
  !> would share that.
  subroutine keep_address(address)
    type(c_ptr), intent(in), target :: address
    integer(c_int) :: status

    call knl_set_module_struct_resource('state', c_loc(address), int(c_sizeof(address), c_int), &
        status)
  end subroutine keep_address

  !> The address that was kept; null when none was.
  function kept_address() result(kept)
    type(c_ptr) :: kept
    type(c_ptr), target :: address
    logical :: found

    address = c_null_ptr
    call knl_get_module_struct_resource('state', c_loc(address), found)
    kept = address
  end function kept_address

  !> Says why the module ends here, to the person and to those who write the job's files. `name` is
  !> the module's.
  subroutine fail(name, text)
    character(len=*), intent(in) :: name, text

    call knl_send_message(knl_message_fatal, text)
    call knl_set_metadata_value(knl_scope_job, 'vorn.failed', name // ': ' // text)
  end subroutine fail

  !> Whether a module has failed. Those that follow it may lack what it should have told them, and
  !> have nothing to complain about.
  logical function job_has_failed()
    character(len=1) :: cause
    integer(c_int) :: length

    call knl_get_metadata_value(knl_scope_job, 'vorn.failed', cause, length)
    job_has_failed = length > 0
  end function job_has_failed

  !> A number as people write it.
  pure function text_of(value) result(text)
    real(c_double), intent(in) :: value
    character(len=:), allocatable :: text
    character(len=32) :: digits
    logical :: is_short

    is_short = abs(value) >= 1.0e-4_c_double .and. abs(value) < 1.0e9_c_double
    if (value /= 0 .and. .not. is_short) then
      write (digits, '(es12.5)') value
      text = trim(adjustl(digits))
      return
    end if
    write (digits, '(f32.6)') value
    text = trim(adjustl(digits))
    text = text(:verify(text, '0', back=.true.))
    if (text(len(text):) == '.') text = text(:len(text) - 1)
  end function text_of
end module module_tools
