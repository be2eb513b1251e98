! my_module: counts traces and finds the largest sample.
module my_module_job
  use, intrinsic :: iso_c_binding, only: c_float, c_int, c_int64_t, c_ptr
  use my_module_parameters
  use vorn_kit
  use vorn_knl
  use vorn_stream
  implicit none
  private

  type, extends(vorn_stream_module), public :: my_module_state
    type(parameters) :: set
    integer(c_int64_t) :: traces = 0
    real(c_float) :: largest = 0
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
    type(c_ptr) :: input

    call vorn_required_input(input, good)
    if (good) call read_parameters(state%set, good)
  end subroutine prepare

  ! For each trace.
  subroutine on_trace(state, good)
    class(my_module_state), intent(inout) :: state
    logical, intent(inout) :: good
    real(c_float), pointer :: samples(:)
    integer(c_int) :: status

    call knl_get_trace_samples(vorn_trace(state%io, 1), samples, status)
    good = status == 0
    if (.not. good) then
      call vorn_fail('the traces have no samples')
      return
    end if
    state%traces = state%traces + 1
    if (size(samples) > 0) state%largest = max(state%largest, maxval(abs(samples)))
  end subroutine on_trace

  ! After the last trace; also when there was none.
  subroutine on_end(state, good)
    class(my_module_state), intent(inout) :: state
    logical, intent(inout) :: good

    call knl_send_message(knl_message_information, vorn_to_text(state%traces) // &
        ' traces, largest sample ' // vorn_to_text(dble(state%largest)))
    if (state%largest > state%set%limit) &
        call knl_send_message(knl_message_warning, 'the largest sample is above the limit of ' // &
        vorn_to_text(state%set%limit))
    good = .true.
  end subroutine on_end
end module my_module_job

subroutine vorn_new_module(state)
  use my_module_job, only: my_module_state
  use vorn_kit, only: vorn_module
  implicit none
  class(vorn_module), pointer, intent(out) :: state

  allocate (my_module_state :: state)
end subroutine vorn_new_module
