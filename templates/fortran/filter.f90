! my_module: multiplies the samples of every trace by a factor.
module my_module_job
  use, intrinsic :: iso_c_binding, only: c_float, c_int, c_ptr
  use my_module_parameters
  use vorn_kit
  use vorn_knl
  use vorn_stream
  implicit none
  private

  ! What the module keeps from one call to the next: never in variables of a Fortran module, since a
  ! job may use this library for several modules.
  type, extends(vorn_stream_module), public :: my_module_state
    type(parameters) :: set
  contains
    procedure :: prepare
    procedure :: on_trace
  end type my_module_state

contains

  ! Before the first trace. `good` is true at the call, and false after vorn_fail.
  subroutine prepare(state, good)
    class(my_module_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input

    call vorn_required_input(input, good)
    if (good) call vorn_build_required_output(input, good)
    if (good) call read_parameters(state%set, good)
  end subroutine prepare

  ! For each trace: it goes out as it is, with its header, and is changed there.
  subroutine on_trace(state, good)
    class(my_module_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: trace
    real(c_float), pointer :: samples(:)
    integer(c_int) :: status

    call vorn_emit_trace(state%io, 1, vorn_trace(state%io, 1), trace)
    call knl_get_trace_samples(trace, samples, status)
    good = status == 0
    if (.not. good) then
      call vorn_fail('the traces have no samples')
      return
    end if
    samples = real(state%set%factor, c_float) * samples
  end subroutine on_trace
end module my_module_job

subroutine vorn_new_module(state)
  use my_module_job, only: my_module_state
  use vorn_kit, only: vorn_module
  implicit none
  class(vorn_module), pointer, intent(out) :: state

  allocate (my_module_state :: state)
end subroutine vorn_new_module
