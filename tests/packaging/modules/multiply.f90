! Multiplies every sample by a parameter, with the kit.
module multiply_job
  use, intrinsic :: iso_c_binding, only: c_float, c_int, c_ptr
  use only_parameters
  use vorn_kit
  use vorn_knl
  implicit none
  private

  type, extends(vorn_module), public :: multiply_state
    type(parameters) :: set
  contains
    procedure :: prepare
    procedure :: process
  end type multiply_state

contains

  subroutine prepare(state, good)
    class(multiply_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input

    call vorn_required_input(input, good)
    if (good) call vorn_build_required_output(input, good)
    if (good) call read_parameters(state%set, good)
  end subroutine prepare

  subroutine process(state, good)
    class(multiply_state), intent(inout) :: state
    logical, intent(inout) :: good
    real(c_float), pointer :: samples(:)
    type(c_ptr) :: input, output
    integer(c_int) :: number, status

    call knl_get_input_trace_buffer(input, 1, status)
    call knl_get_output_trace_buffer(output, 1, status)
    call vorn_pass_trace(input, output, number)
    call knl_get_trace_samples(output, samples, status, number)
    good = status == 0
    if (.not. good) return
    samples = samples * real(state%set%factor, c_float)
    if (state%set%mode == mode_negative) samples = -samples
  end subroutine process
end module multiply_job

subroutine vorn_new_module(state)
  use multiply_job, only: multiply_state
  use vorn_kit, only: vorn_module
  implicit none
  class(vorn_module), pointer, intent(out) :: state

  allocate (multiply_state :: state)
end subroutine vorn_new_module
