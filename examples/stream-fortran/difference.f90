! difference: subtracts from each trace the next one.
module difference_job
  use, intrinsic :: iso_c_binding, only: c_float, c_int, c_null_ptr, c_ptr
  use difference_parameters
  use vorn_kit
  use vorn_knl
  use vorn_stream
  implicit none
  private

  type, extends(vorn_stream_module), public :: difference_state
    type(parameters) :: set
    type(c_ptr) :: before = c_null_ptr ! a queue: the trace before this one
  contains
    procedure :: prepare
    procedure :: on_trace
  end type difference_state

contains

  ! Before the first trace. `good` is true at the call, and false after vorn_fail.
  subroutine prepare(state, good)
    class(difference_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input, output
    integer(c_int) :: status

    call vorn_required_input(input, good)
    if (good) call vorn_build_required_output(input, good)
    if (good) call read_parameters(state%set, good)
    if (.not. good) return
    call knl_get_output_trace_buffer(output, 1, status)
    call vorn_build_queue(state%io, output, state%before)
  end subroutine prepare

  ! For each trace: the one before it leaves, less this one.
  subroutine on_trace(state, good)
    class(difference_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input, output
    real(c_float), pointer :: next(:), samples(:)
    integer(c_int) :: kept, no_samples, no_next

    input = vorn_trace(state%io, 1)
    call knl_get_number_of_traces(state%before, kept, no_samples)
    if (kept > 0) then
      call vorn_emit_trace(state%io, 1, state%before, output)
      call vorn_drop_queued(state%before, 1)
      call knl_get_trace_samples(output, samples, no_samples)
      call knl_get_trace_samples(input, next, no_next)
      good = no_samples == 0 .and. no_next == 0
      if (.not. good) then
        call vorn_fail('the traces have no samples')
        return
      end if
      samples = samples - real(state%set%scale, c_float) * next
    end if
    call vorn_queue_trace(state%io, state%before, input)
  end subroutine on_trace
end module difference_job

subroutine vorn_new_module(state)
  use difference_job, only: difference_state
  use vorn_kit, only: vorn_module
  implicit none
  class(vorn_module), pointer, intent(out) :: state

  allocate (difference_state :: state)
end subroutine vorn_new_module
