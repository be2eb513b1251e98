! The same as parts_c.c in Fortran.
module parts_fortran_job
  use, intrinsic :: iso_c_binding, only: c_double, c_int, c_int64_t, c_ptr
  use parts_fortran_parameters
  use vorn_kit
  use vorn_knl
  implicit none
  private

  type, extends(vorn_module), public :: parts_state
    type(parameters) :: set
    integer(c_int64_t) :: traces = 0
    real(c_double) :: sum = 0
    logical :: has_warned = .false.
    character(len=:), allocatable :: names
    real(c_double), allocatable :: numbers(:)
    integer(c_int64_t), allocatable :: places(:)
  contains
    procedure :: prepare
    procedure :: process
    procedure :: finish
    procedure :: save_part
    procedure :: merge_part
  end type parts_state

contains

  subroutine prepare(state, good)
    class(parts_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input

    call vorn_required_input(input, good)
    if (good) call vorn_build_required_output(input, good)
    if (good) call read_parameters(state%set, good)
    state%names = ''
    allocate (state%numbers(0), state%places(0))
  end subroutine prepare

  subroutine process(state, good)
    class(parts_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input, output
    integer(c_int) :: number, place, status

    call knl_get_input_trace_buffer(input, 1, status)
    call knl_get_output_trace_buffer(output, 1, status)
    number = 0
    call knl_get_trace_attribute(input, 'tracf', number, status)
    state%traces = state%traces + 1
    state%sum = state%sum + number
    state%names = state%names // ' ' // vorn_to_text(number)
    state%numbers = [state%numbers, real(number, c_double)]
    state%places = [state%places, int(number, c_int64_t)]
    if (number > 2 .and. .not. state%has_warned) then
      state%has_warned = .true.
      call vorn_message_once(knl_message_warning, 'above', 'trace ' // &
          vorn_to_text(vorn_part_first() + state%traces) // ' is above 2')
    end if
    call knl_send_message(knl_message_detail, vorn_to_text(number))
    call vorn_pass_trace(input, output, place)
    if (state%set%fails /= fails_process) return
    call vorn_fail('told to fail in process')
    good = .false.
  end subroutine process

  subroutine finish(state)
    class(parts_state), intent(inout) :: state
    integer :: i

    do i = 1, size(state%numbers)
      if (nint(state%numbers(i)) /= state%places(i)) call vorn_fail('the numbers differ')
    end do
    if (size(state%numbers) /= state%traces) call vorn_fail('numbers are missing')
    call knl_send_message(knl_message_information, 'traces=' // vorn_to_text(state%traces) // &
        ' sum=' // vorn_to_text(state%sum) // ' names=' // state%names)
  end subroutine finish

  subroutine save_part(state, file, good)
    class(parts_state), intent(inout) :: state
    type(vorn_state_file), intent(inout) :: file
    logical, intent(inout) :: good

    if (state%set%fails == fails_save) then
      call vorn_fail('told to fail in save')
      good = .false.
      return
    end if
    if (state%set%saves == saves_other) call vorn_put(file, state%sum)
    call vorn_put(file, state%traces)
    if (state%set%saves /= saves_less) call vorn_put(file, state%sum)
    call vorn_put(file, state%names)
    call vorn_put(file, state%numbers)
    call vorn_put(file, state%places)
    call vorn_put(file, state%has_warned)
    if (state%set%saves == saves_more) call vorn_put(file, 1_c_int)
  end subroutine save_part

  subroutine merge_part(state, file, good)
    class(parts_state), intent(inout) :: state
    type(vorn_state_file), intent(inout) :: file
    logical, intent(inout) :: good
    integer(c_int64_t) :: traces
    integer(c_int64_t), allocatable :: places(:)
    real(c_double) :: sum
    real(c_double), allocatable :: numbers(:)
    character(len=:), allocatable :: names
    logical :: has_warned

    if (state%set%fails == fails_merge) then
      call vorn_fail('told to fail in merge')
      good = .false.
      return
    end if
    call vorn_get(file, traces, good)
    call vorn_get(file, sum, good)
    call vorn_get(file, names, good)
    call vorn_get(file, numbers, good)
    call vorn_get(file, places, good)
    call vorn_get(file, has_warned, good)
    if (.not. good) return
    state%traces = state%traces + traces
    state%sum = state%sum + sum
    state%names = state%names // names
    state%numbers = [state%numbers, numbers]
    state%places = [state%places, places]
    state%has_warned = state%has_warned .or. has_warned
  end subroutine merge_part
end module parts_fortran_job

subroutine vorn_new_module(state)
  use parts_fortran_job, only: parts_state
  use vorn_kit, only: vorn_module
  implicit none
  class(vorn_module), pointer, intent(out) :: state

  allocate (parts_state :: state)
end subroutine vorn_new_module
