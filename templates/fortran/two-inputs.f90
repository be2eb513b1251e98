! my_module: subtracts the traces of its second input from those of the first.
module my_module_job
  use, intrinsic :: iso_c_binding, only: c_associated, c_float, c_int, c_ptr
  use my_module_parameters
  use vorn_kit
  use vorn_knl
  use vorn_stream
  implicit none
  private

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
    type(c_ptr) :: input, second

    ! Inputs are taken in step, one trace of each; vorn_match would match them by header words.
    call vorn_required_input(second, good, 2)
    if (good) call vorn_required_input(input, good)
    if (good) call vorn_build_required_output(input, good)
    if (good) call read_parameters(state%set, good)
  end subroutine prepare

  ! For each pair of traces. An input that has ended has none.
  subroutine on_trace(state, good)
    class(my_module_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: second, trace
    real(c_float), pointer :: samples(:), subtracted(:)
    integer(c_int) :: no_samples, none_subtracted
    integer :: n

    second = vorn_trace(state%io, 2)
    good = c_associated(vorn_trace(state%io, 1)) .and. c_associated(second)
    if (.not. good) then
      call vorn_fail('one input has more traces than the other')
      return
    end if
    call vorn_emit_trace(state%io, 1, vorn_trace(state%io, 1), trace)
    call knl_get_trace_samples(trace, samples, no_samples)
    call knl_get_trace_samples(second, subtracted, none_subtracted)
    good = no_samples == 0 .and. none_subtracted == 0
    if (.not. good) then
      call vorn_fail('the traces have no samples')
      return
    end if
    n = min(size(samples), size(subtracted))
    samples(:n) = samples(:n) - real(state%set%scale, c_float) * subtracted(:n)
  end subroutine on_trace
end module my_module_job

subroutine vorn_new_module(state)
  use my_module_job, only: my_module_state
  use vorn_kit, only: vorn_module
  implicit none
  class(vorn_module), pointer, intent(out) :: state

  allocate (my_module_state :: state)
end subroutine vorn_new_module
