! my_module: makes traces, each with a spike in the middle.
module my_module_job
  use, intrinsic :: iso_c_binding, only: c_float, c_int, c_int64_t, c_null_ptr, c_ptr
  use my_module_parameters
  use vorn_kit
  use vorn_knl
  use vorn_stream
  implicit none
  private

  type, extends(vorn_stream_module), public :: my_module_state
    type(parameters) :: set
    integer(c_int) :: made = 0 ! traces
  contains
    procedure :: prepare
    procedure :: on_trace
  end type my_module_state

contains

  ! Before the first trace. `good` is true at the call, and false after vorn_fail.
  subroutine prepare(state, good)
    class(my_module_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: output
    integer(c_int) :: status, microseconds

    call read_parameters(state%set, good)
    if (.not. good) return
    microseconds = nint(1.0e6 * state%set%interval)
    call knl_bld_output_trace_buffer(1, state%set%samples, microseconds, c_null_ptr, status)
    good = status == 0
    if (.not. good) then
      call vorn_fail('the module has no output; connect one')
      return
    end if
    call knl_get_output_trace_buffer(output, 1, status)
    ! Header words that the traces have: of the type that the job's schema gives them.
    call knl_define_trace_attribute(output, 'tracl', status)
    call knl_define_trace_attribute(output, 'fldr', status)
    call knl_inform_total_traces_number(output, state%set%traces) ! for the progress
  end subroutine prepare

  ! A module without inputs is called until it has called vorn_stop.
  subroutine on_trace(state, good)
    class(my_module_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: trace
    real(c_float), pointer :: samples(:)
    integer(c_int) :: status

    call vorn_emit(state%io, 1, trace)
    call knl_get_trace_samples(trace, samples, status)
    good = status == 0
    if (.not. good) then
      call vorn_fail('the traces have no samples')
      return
    end if
    state%made = state%made + 1
    samples(size(samples) / 2 + 1) = real(state%made, c_float)
    call knl_set_trace_attribute(trace, 'tracl', state%made, status)
    call knl_set_trace_attribute(trace, 'fldr', 1_c_int, status)
    if (state%made == state%set%traces) call vorn_stop(state%io)
  end subroutine on_trace
end module my_module_job

subroutine vorn_new_module(state)
  use my_module_job, only: my_module_state
  use vorn_kit, only: vorn_module
  implicit none
  class(vorn_module), pointer, intent(out) :: state

  allocate (my_module_state :: state)
end subroutine vorn_new_module
