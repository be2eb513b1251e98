! my_module: subtracts the mean trace of each gather from its traces.
module my_module_job
  use, intrinsic :: iso_c_binding, only: c_float, c_int, c_null_ptr, c_ptr
  use my_module_parameters
  use vorn_kit
  use vorn_knl
  use vorn_stream
  implicit none
  private

  type, extends(vorn_stream_module), public :: my_module_state
    type(parameters) :: set
    type(c_ptr) :: gather = c_null_ptr ! a queue: the traces of the current gather, which the kernel pages
    integer(c_int) :: key = 0          ! its value of the key word
    real(c_float), allocatable :: mean(:)
  contains
    procedure :: prepare
    procedure :: on_trace
    procedure :: on_end
  end type my_module_state

contains

  ! Before the first trace. `good` is true at the call, and false after vorn_fail.
  subroutine prepare(state, good)
    class(my_module_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input, output
    integer(c_int) :: samples, status

    call vorn_required_input(input, good)
    if (good) call vorn_build_required_output(input, good)
    if (good) call read_parameters(state%set, good)
    if (.not. good) return
    call knl_get_output_trace_buffer(output, 1, status)
    call vorn_build_queue(state%io, output, state%gather)
    call knl_get_trace_length(input, samples, status)
    allocate (state%mean(samples))
  end subroutine prepare

  ! For each trace: the gather ends where the key word changes.
  subroutine on_trace(state, good)
    class(my_module_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input
    integer(c_int) :: key, traces, status

    input = vorn_trace(state%io, 1)
    call knl_get_trace_attribute(input, state%set%key, key, status)
    good = status == 0
    if (.not. good) then
      call vorn_fail('the traces have no header word ' // state%set%key)
      return
    end if
    call knl_get_number_of_traces(state%gather, traces, status)
    if (traces > 0 .and. key /= state%key) call emit_gather(state, good)
    state%key = key
    if (good) call vorn_queue_trace(state%io, state%gather, input)
  end subroutine on_trace

  ! After the last trace; also when there was none.
  subroutine on_end(state, good)
    class(my_module_state), intent(inout) :: state
    logical, intent(inout) :: good
    integer(c_int) :: traces, status

    call knl_get_number_of_traces(state%gather, traces, status)
    if (traces > 0) call emit_gather(state, good)
  end subroutine on_end

  ! The gather is complete: its traces leave.
  subroutine emit_gather(state, good)
    class(my_module_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: trace
    real(c_float), pointer :: samples(:)
    integer(c_int) :: traces, status, i

    call knl_get_number_of_traces(state%gather, traces, status)
    state%mean = 0
    do i = 1, traces
      call knl_get_trace_samples(state%gather, samples, status, i)
      if (status /= 0) exit
      state%mean = state%mean + samples / real(traces, c_float)
    end do
    do i = 1, traces
      if (status /= 0) exit
      call vorn_emit_trace(state%io, 1, state%gather, trace, i)
      call knl_get_trace_samples(trace, samples, status)
      if (status == 0) samples = samples - state%mean
    end do
    call vorn_clear_queue(state%gather)
    good = status == 0
    if (.not. good) call vorn_fail('the traces have no samples')
  end subroutine emit_gather
end module my_module_job

subroutine vorn_new_module(state)
  use my_module_job, only: my_module_state
  use vorn_kit, only: vorn_module
  implicit none
  class(vorn_module), pointer, intent(out) :: state

  allocate (my_module_state :: state)
end subroutine vorn_new_module
