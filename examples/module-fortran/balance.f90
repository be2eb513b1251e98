! balance: divides every sample by the mean amplitude of the samples around it.
module balance_job
  use, intrinsic :: iso_c_binding, only: c_double, c_float, c_int, c_ptr
  use balance_math, only: balance_samples
  use balance_parameters
  use vorn_kit
  use vorn_knl
  use vorn_stream
  implicit none
  private

  ! What the module keeps from one call to the next: never in variables of a Fortran module, since a
  ! job may use this library for several modules.
  type, extends(vorn_stream_module), public :: balance_state
    type(parameters) :: set
    integer :: half = 0                  ! samples of the window to either side of a sample
    real(c_double), allocatable :: sums(:)
  contains
    procedure :: prepare
    procedure :: on_trace
  end type balance_state

contains

  ! Before the first trace. `good` is true at the call, and false after vorn_fail.
  subroutine prepare(state, good)
    class(balance_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input
    integer(c_int) :: samples, interval, status

    call vorn_required_input(input, good)
    ! The modules before this one have described their outputs by now.
    if (good) call vorn_build_required_output(input, good)
    if (good) call read_parameters(state%set, good)
    if (.not. good) return
    call knl_get_trace_length(input, samples, status)
    call knl_get_trace_sample_interval(input, interval, status)
    good = interval > 0
    if (.not. good) then
      call vorn_fail('the input has no sample interval; the module before this one has to set it')
      return
    end if
    state%half = nint(min(state%set%window / (2.0e-6_c_double * interval), 1.0e9_c_double))
    allocate (state%sums(samples + 1))
  end subroutine prepare

  ! For each trace: it goes out as it is, with its header, and is changed there.
  subroutine on_trace(state, good)
    class(balance_state), intent(inout) :: state
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
    call balance_samples(samples, state%half, state%set%level, state%sums)
  end subroutine on_trace
end module balance_job

subroutine vorn_new_module(state)
  use balance_job, only: balance_state
  use vorn_kit, only: vorn_module
  implicit none
  class(vorn_module), pointer, intent(out) :: state

  allocate (balance_state :: state)
end subroutine vorn_new_module
