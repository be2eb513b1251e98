! stack: sums consecutive traces that have the same value in a header word.
!
! The header of a group's first trace is kept in a work buffer of one trace, of which only the header
! is used. A call writes one trace at most: the trace that begins a new group has the old one written
! and is read again in the next call.
module stack_job
  use, intrinsic :: iso_c_binding, only: c_double, c_float, c_int, c_int64_t, c_ptr
  use stack_math
  use stack_parameters
  use vorn_kit
  use vorn_knl
  implicit none
  private

  ! What the module keeps from one call to the next.
  type, extends(vorn_module), public :: stack_state
    type(parameters) :: set
    integer(c_int) :: normalisation      ! one of stack_math's
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
    procedure :: process
    procedure :: finish
  end type stack_state

  ! Groups whose values are kept, to find those that come again: so many need 8 MB.
  integer, parameter :: most_groups = 2**20

contains

  subroutine prepare(state, good)
    class(stack_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input, output
    integer(c_int) :: length, interval, status

    call vorn_required_input(input, good)
    ! The modules before this one have described their outputs by now.
    if (good) call vorn_build_required_output(input, good)
    if (.not. good) return
    call knl_get_trace_length(input, length, status)
    call knl_get_trace_sample_interval(input, interval, status)
    call knl_get_output_trace_buffer(output, 1, status)
    call knl_define_trace_attribute(output, 'nhs', status)
    call knl_bld_work_trace_buffer(1, 1, interval, 1, output, status)
    ! Be called also when the input has ended, so that a last group is not lost with an unmarked end.
    call knl_set_module_processing_option('RespectEOD', 1)

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

  subroutine process(state, good)
    class(stack_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input, output
    integer(c_int) :: pending, status

    call knl_get_input_trace_buffer(input, 1, status)
    call knl_get_output_trace_buffer(output, 1, status)
    call vorn_keep_empty_inputs()
    call knl_get_number_of_traces(input, pending, status)
    if (pending == 0) then
      call emit_last(state, output)
    else
      call consume(state, input, output, good)
    end if
  end subroutine process

  subroutine finish(state)
    class(stack_state), intent(inout) :: state

    if (.not. vorn_job_has_failed()) call warn_of_groups(state)
  end subroutine finish

  !> Takes the first trace of `input`, or writes the group before it and takes nothing. `good` is
  !> false after a message.
  subroutine consume(state, input, output, good)
    class(stack_state), intent(inout) :: state
    type(c_ptr), intent(in) :: input, output
    logical, intent(inout) :: good
    real(c_float), pointer :: samples(:)
    real(c_double) :: group
    integer(c_int) :: flag, status

    call knl_get_trace_attribute(input, state%set%key, group, status)
    if (status /= 0) then
      call vorn_fail('the traces have no header word "' // state%set%key // &
          '"; name one that they have with key')
      good = .false.
      return
    end if
    if (state%traces > 0 .and. group /= state%group) then
      call emit(state, output, .false.)
      call knl_set_input_trace_buffer_flag(1, knl_keep_trace)
      return
    end if

    state%taken = state%taken + 1
    if (state%traces == 0) then
      call begin(state, input, group)
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
    call knl_get_data_channel_flag(input, flag)
    if (flag == knl_end_of_data) call emit(state, output, .true.)
  end subroutine consume

  !> The input has ended without a mark on its last trace.
  subroutine emit_last(state, output)
    class(stack_state), intent(inout) :: state
    type(c_ptr), intent(in) :: output

    if (state%traces > 0) call emit(state, output, .true.)
    call knl_set_data_channel_flag(output, knl_end_of_data)
  end subroutine emit_last

  subroutine begin(state, input, group)
    class(stack_state), intent(inout) :: state
    type(c_ptr), intent(in) :: input
    real(c_double), intent(in) :: group
    type(c_ptr) :: work
    integer(c_int) :: status

    call knl_get_work_trace_buffer(work, 1, status)
    call knl_copy_trace_to_trace(input, work, .true., .false., status)
    call knl_get_trace_attribute(input, 'delrt', state%delay, status)
    state%has_delay = status == 0
    call keep_value(state, group)
    state%group = group
    state%sums = 0
    state%live = 0
  end subroutine begin

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
        ', trace ' // vorn_to_text(state%taken) // ' of the input begins at ' // &
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

  subroutine emit(state, output, is_last)
    class(stack_state), intent(inout) :: state
    type(c_ptr), intent(in) :: output
    logical, intent(in) :: is_last
    real(c_float), pointer :: samples(:)
    type(c_ptr) :: work
    integer(c_int) :: number, status

    call knl_get_work_trace_buffer(work, 1, status)
    call knl_set_trace_attribute(work, 'nhs', state%traces, status)
    call knl_get_number_of_traces(output, number, status)
    number = number + 1
    call knl_copy_trace_to_trace(work, output, .true., .false., status, 1, number)
    ! The flag that came with the header is that of the group's first trace.
    call knl_set_data_channel_flag(output, merge(knl_end_of_data, 0_c_int, is_last))
    call knl_get_trace_samples(output, samples, status, number)
    if (status == 0) call stack_normalise(state%sums, state%live, &
        min(size(samples), size(state%sums)), state%traces, state%normalisation, samples)
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
