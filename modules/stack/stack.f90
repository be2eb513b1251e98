! stack: sums consecutive traces that have the same value in a header word.
!
! The first trace of a group is kept in a queue, for its header: it leaves as the group's sum.
module stack_job
  use, intrinsic :: iso_c_binding, only: c_associated, c_double, c_float, c_int, c_int64_t, &
      c_null_ptr, c_ptr
  use stack_math
  use stack_parameters
  use vorn_kit
  use vorn_knl
  use vorn_stream
  implicit none
  private

  ! What the module keeps from one call to the next.
  type, extends(vorn_stream_module), public :: stack_state
    type(parameters) :: set
    integer(c_int) :: normalisation      ! one of stack_math's
    type(c_ptr) :: first = c_null_ptr    ! a queue: the group's first trace
    integer(c_int) :: traces = 0         ! of the group so far
    real(c_double) :: group = 0          ! their value of the header word
    logical :: has_delay = .false.       ! their delay is known
    integer(c_int) :: delay = 0          ! of their first samples, milliseconds
    integer(c_int64_t) :: taken = 0      ! traces of all groups
    integer(c_int) :: groups = 0         ! of which a value is kept
    real(c_double), allocatable :: values(:) ! of the header word, by group
    real(c_double), allocatable :: sums(:)
    integer(c_int), allocatable :: live(:)
  contains
    procedure :: prepare
    procedure :: on_trace
    procedure :: on_end
    procedure :: finish
    procedure :: save_part
    procedure :: merge_part
  end type stack_state

  ! Groups whose values are kept, to find those that come again: so many need 8 MB.
  integer, parameter :: most_groups = 2**20

contains

  subroutine prepare(state, good)
    class(stack_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input, output
    integer(c_int) :: length, status

    call vorn_required_input(input, good)
    ! The modules before this one have described their outputs by now.
    if (good) call vorn_build_required_output(input, good)
    if (.not. good) return
    call knl_get_trace_length(input, length, status)
    call knl_get_output_trace_buffer(output, 1, status)
    call knl_define_trace_attribute(output, 'nhs', status)
    call vorn_build_queue(state%io, output, state%first)

    call read_parameters(state%set, good)
    if (good) call vorn_allow_memory(state%set%memory_limit, 12 * int(length, c_int64_t), &
        'the sums of traces of ' // vorn_to_text(length) // ' samples', 'shorten the traces', good)
    if (.not. good) return
    allocate (state%sums(max(length, 0)), state%live(max(length, 0)), state%values(64), stat=status)
    good = status == 0
    if (.not. good) then
      call vorn_fail('not enough memory for sums of traces of this length')
      return
    end if
    call choose_normalisation(state)
  end subroutine prepare

  subroutine choose_normalisation(state)
    class(stack_state), intent(inout) :: state

    select case (state%set%normalise)
    case (normalise_sqrt)
      state%normalisation = stack_sqrt
    case (normalise_count)
      state%normalisation = stack_count
    case (normalise_none)
      state%normalisation = stack_none
    case default
      state%normalisation = stack_live
    end select
    call vorn_add_history('stack key=' // state%set%key // ' normalise=' // &
        normalise_word(state%set%normalise))
  end subroutine choose_normalisation

  subroutine on_trace(state, good)
    class(stack_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input
    real(c_float), pointer :: samples(:)
    real(c_double) :: group
    integer(c_int) :: status

    input = vorn_trace(state%io, 1)
    call knl_get_trace_attribute(input, state%set%key, group, status)
    if (status /= 0) then
      call vorn_fail('the traces have no header word "' // state%set%key // &
          '"; name one that they have with key')
      good = .false.
      return
    end if
    if (state%traces > 0 .and. group /= state%group) call emit(state)

    state%taken = state%taken + 1
    if (state%traces == 0) then
      call begin_group(state, input, group)
    else
      good = has_group_delay(state, input)
      if (.not. good) return
    end if
    call knl_get_trace_samples(input, samples, status)
    if (status /= 0 .and. size(state%sums) > 0) call vorn_fail_without_samples(input, good)
    if (.not. good) return
    if (status == 0) call stack_add(samples, min(size(samples), size(state%sums)), state%sums, &
        state%live)
    state%traces = state%traces + 1
    ! Its samples are in the sum: the trace itself is kept.
    if (state%traces == 1) call vorn_queue_trace(state%io, state%first, input)
  end subroutine on_trace

  subroutine on_end(state, good)
    class(stack_state), intent(inout) :: state
    logical, intent(inout) :: good

    if (good .and. state%traces > 0) call emit(state)
  end subroutine on_end

  subroutine finish(state)
    class(stack_state), intent(inout) :: state

    if (.not. vorn_job_has_failed()) call warn_of_groups(state)
  end subroutine finish

  !> Parts begin with groups: nothing of a group is left here.
  subroutine save_part(state, file, good)
    class(stack_state), intent(inout) :: state
    type(vorn_state_file), intent(inout) :: file
    logical, intent(inout) :: good

    call vorn_put(file, state%taken)
    call vorn_put(file, state%values(:state%groups))
    associate (unused => good)
    end associate
  end subroutine save_part

  subroutine merge_part(state, file, good)
    class(stack_state), intent(inout) :: state
    type(vorn_state_file), intent(inout) :: file
    logical, intent(inout) :: good
    integer(c_int64_t) :: taken
    real(c_double), allocatable :: values(:)
    integer :: i

    call vorn_get(file, taken, good)
    call vorn_get(file, values, good)
    if (.not. good) return
    state%taken = state%taken + taken
    do i = 1, size(values)
      call keep_value(state, values(i))
    end do
  end subroutine merge_part

  subroutine begin_group(state, input, group)
    class(stack_state), intent(inout) :: state
    type(c_ptr), intent(in) :: input
    real(c_double), intent(in) :: group
    integer(c_int) :: status

    call knl_get_trace_attribute(input, 'delrt', state%delay, status)
    state%has_delay = status == 0
    call keep_value(state, group)
    state%group = group
    state%sums = 0
    state%live = 0
  end subroutine begin_group

  !> Whether the first trace of `input` begins when the group does; false after a message.
  logical function has_group_delay(state, input)
    class(stack_state), intent(in) :: state
    type(c_ptr), intent(in) :: input
    integer(c_int) :: delay, status

    delay = 0
    call knl_get_trace_attribute(input, 'delrt', delay, status)
    has_group_delay = status /= 0 .or. .not. state%has_delay .or. delay == state%delay
    if (has_group_delay) return
    call vorn_fail('in the group ' // state%set%key // ' = ' // vorn_to_text(state%group) // &
        ', trace ' // vorn_to_text(vorn_part_first() + state%taken) // ' of the input begins at ' // &
        vorn_to_text(delay) // ' ms (delrt) and the first one at ' // &
        vorn_to_text(state%delay) // ' ms; give the traces of a group one delay, or a ' &
        // 'key that keeps them apart')
  end function has_group_delay

  subroutine keep_value(state, group)
    class(stack_state), intent(inout) :: state
    real(c_double), intent(in) :: group
    real(c_double), allocatable :: larger(:)
    integer :: status

    if (state%groups == most_groups) return
    if (state%groups == size(state%values)) then
      allocate (larger(2 * size(state%values)), stat=status)
      if (status /= 0) return ! a warning less
      larger(:state%groups) = state%values
      call move_alloc(larger, state%values)
    end if
    state%groups = state%groups + 1
    state%values(state%groups) = group
  end subroutine keep_value

  !> Warns of traces without groups, and of groups in several pieces.
  subroutine warn_of_groups(state)
    class(stack_state), intent(inout) :: state
    integer :: different

    if (state%groups == 1 .and. state%values(1) == 0 .and. state%taken > 1) then
      call knl_send_message(knl_message_warning, state%set%key // ' is 0 in all ' // &
          vorn_to_text(state%taken) // ' traces, which became one; name a header word ' &
          // 'with key that tells the gathers apart')
      return
    end if
    different = stack_different(state%values, state%groups)
    if (different == state%groups) return
    call knl_send_message(knl_message_warning, vorn_to_text(state%groups) // &
        ' groups have ' // vorn_to_text(different) // ' different values of ' // &
        state%set%key // ': traces with the same value did not follow each other, and became several '&
        // 'stacked traces; sort by ' // state%set%key // ' first')
  end subroutine warn_of_groups

  subroutine emit(state)
    class(stack_state), intent(inout) :: state
    real(c_float), pointer :: samples(:)
    type(c_ptr) :: trace
    integer(c_int) :: status

    call vorn_emit_trace(state%io, 1, state%first, trace)
    call vorn_drop_queued(state%first, 1)
    if (c_associated(trace)) then
      call knl_set_trace_attribute(trace, 'nhs', state%traces, status)
      call knl_get_trace_samples(trace, samples, status)
      if (status == 0) call stack_normalise(state%sums, state%live, &
          min(size(samples), size(state%sums)), state%traces, state%normalisation, samples)
    end if
    state%traces = 0
  end subroutine emit
end module stack_job

subroutine vorn_new_module(state)
  use stack_job, only: stack_state
  use vorn_kit, only: vorn_module
  implicit none
  class(vorn_module), pointer, intent(out) :: state

  allocate (stack_state :: state)
end subroutine vorn_new_module
