! stack: sums consecutive traces that have the same value in a header word.
!
! The header of a group's first trace waits in a work buffer of one trace, of which only the header
! is used. A call writes one trace at most: the trace that begins a new group lets the old one go and
! is asked for again with the next call.
module stack_job
  use, intrinsic :: iso_c_binding, only: c_associated, c_double, c_f_pointer, c_float, c_int, &
      c_int64_t, c_ptr
  use module_tools
  use stack_math
  use vorn_knl
  implicit none
  private
  public :: stack_state, read_parameters, consume, finish, find, warn_of_groups

  ! What the module keeps from one call to the next.
  type :: stack_state
    character(len=:), allocatable :: key ! header word that holds a group together
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
  end type stack_state

  ! Groups whose values are kept, to find those that come again: so many need 8 MB.
  integer, parameter :: most_groups = 2**20

contains

  !> `good` is false after a message. `history` describes the step.
  subroutine read_parameters(state, history, good)
    type(stack_state), intent(inout) :: state
    character(len=:), allocatable, intent(out) :: history
    logical, intent(out) :: good
    character(len=255) :: key, normalise
    logical :: found

    key = 'cdp'
    normalise = 'live'
    call knl_get_module_parameter('key', key, found)
    call knl_get_module_parameter('normalise', normalise, found)
    state%key = trim(key)
    history = 'stack key=' // trim(key) // ' normalise=' // trim(normalise)

    good = .true.
    select case (normalise)
    case ('live')
      state%normalisation = stack_live
    case ('sqrt')
      state%normalisation = stack_sqrt
    case ('count')
      state%normalisation = stack_count
    case ('none')
      state%normalisation = stack_none
    case default
      good = .false.
      call fail('stack', 'normalise is "' // trim(normalise) // '"; give live, sqrt, count or none')
    end select
  end subroutine read_parameters

  !> Takes the first trace of `input`, or lets the group before it go and takes nothing.
  subroutine consume(state, input, output)
    type(stack_state), intent(inout) :: state
    type(c_ptr), intent(in) :: input, output
    real(c_float), pointer :: samples(:)
    real(c_double) :: group
    integer(c_int) :: flag, status

    call knl_get_trace_attribute(input, state%key, group, status)
    if (status /= 0) then
      call fail('stack', 'the traces have no header word "' // state%key // &
          '"; name one that they have with key')
      call knl_set_data_channel_flag(output, knl_end_of_data)
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
    else if (.not. has_group_delay(state, input)) then
      call knl_set_data_channel_flag(output, knl_end_of_data)
      return
    end if
    call knl_get_trace_samples(input, samples, status)
    if (status == 0) call stack_add(samples, min(size(samples), size(state%sums)), state%sums, &
        state%live)
    state%traces = state%traces + 1
    call knl_get_data_channel_flag(input, flag)
    if (flag == knl_end_of_data) call emit(state, output, .true.)
  end subroutine consume

  !> The input has ended without a mark on its last trace.
  subroutine finish(state, output)
    type(stack_state), intent(inout) :: state
    type(c_ptr), intent(in) :: output

    if (state%traces > 0) call emit(state, output, .true.)
    call knl_set_data_channel_flag(output, knl_end_of_data)
  end subroutine finish

  subroutine begin(state, input, group)
    type(stack_state), intent(inout) :: state
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
    type(stack_state), intent(in) :: state
    type(c_ptr), intent(in) :: input
    integer(c_int) :: delay, status

    delay = 0
    call knl_get_trace_attribute(input, 'delrt', delay, status)
    has_group_delay = status /= 0 .or. .not. state%has_delay .or. delay == state%delay
    if (has_group_delay) return
    call fail('stack', 'in the group ' // state%key // ' = ' // text_of(state%group) // &
        ', trace ' // text_of(real(state%taken, c_double)) // ' of the input begins at ' // &
        text_of(real(delay, c_double)) // ' ms (delrt) and the first one at ' // &
        text_of(real(state%delay, c_double)) // ' ms; give the traces of a group one delay, or a ' &
        // 'key that keeps them apart')
  end function has_group_delay

  subroutine keep_value(state, group)
    type(stack_state), intent(inout) :: state
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

  !> Groups that are none, and groups that came in several pieces.
  subroutine warn_of_groups(state)
    type(stack_state), intent(inout) :: state
    integer :: different

    if (state%groups == 1 .and. state%values(1) == 0 .and. state%taken > 1) then
      call knl_send_message(knl_message_warning, state%key // ' is 0 in all ' // &
          text_of(real(state%taken, c_double)) // ' traces, which became one; name a header word ' &
          // 'with key that tells the gathers apart')
      return
    end if
    different = stack_different(state%values, state%groups)
    if (different == state%groups) return
    call knl_send_message(knl_message_warning, text_of(real(state%groups, c_double)) // &
        ' groups have ' // text_of(real(different, c_double)) // ' different values of ' // &
        state%key // ': traces with the same value did not follow each other, and became several '&
        // 'stacked traces; sort by ' // state%key // ' first')
  end subroutine warn_of_groups

  subroutine emit(state, output, is_last)
    type(stack_state), intent(inout) :: state
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

  !> Null where preprocess has failed.
  subroutine find(state)
    type(stack_state), pointer, intent(out) :: state
    type(c_ptr) :: address

    nullify (state)
    address = kept_address()
    if (c_associated(address)) call c_f_pointer(address, state)
  end subroutine find
end module stack_job

integer function preprocess()
  use, intrinsic :: iso_c_binding, only: c_int, c_loc, c_ptr
  use module_tools
  use stack_job
  use vorn_knl
  implicit none
  type(stack_state), pointer :: state
  character(len=:), allocatable :: history
  type(c_ptr) :: input, output
  integer(c_int) :: length, interval, status
  logical :: good

  preprocess = 0
  call knl_get_input_trace_buffer(input, 1, status)
  if (status /= 0) then
    call fail('stack', 'the module has no input; connect one')
    return
  end if
  ! The modules before this one have described their outputs by now.
  call knl_get_trace_length(input, length, status)
  call knl_get_trace_sample_interval(input, interval, status)
  call knl_bld_output_trace_buffer(1, length, interval, input, status)
  if (status /= 0) then
    call fail('stack', 'the module has no output; connect one')
    return
  end if
  call knl_get_output_trace_buffer(output, 1, status)
  call knl_define_trace_attribute(output, 'nhs', status)
  call knl_bld_work_trace_buffer(1, 1, interval, 1, output, status)
  ! Be called also when the input has ended, so that a last group is not lost with an unmarked end.
  call knl_set_module_processing_option('RespectEOD', 1)

  allocate (state)
  call read_parameters(state, history, good)
  if (.not. good) then
    deallocate (state)
    return
  end if
  allocate (state%sums(max(length, 0)), state%live(max(length, 0)), state%values(64), stat=status)
  if (status /= 0) then
    deallocate (state)
    call fail('stack', 'there is no memory for sums of traces of this length')
    return
  end if
  call keep_address(c_loc(state))
  call knl_set_metadata_value(knl_scope_module, 'history$', history)
end function preprocess

integer function process()
  use, intrinsic :: iso_c_binding, only: c_int, c_ptr
  use stack_job
  use vorn_knl
  implicit none
  type(stack_state), pointer :: state
  type(c_ptr) :: input, output
  integer(c_int) :: pending, status

  process = 0
  call knl_get_output_trace_buffer(output, 1, status)
  if (status /= 0) return
  call knl_get_input_trace_buffer(input, 1, status)
  call knl_get_number_of_traces(input, pending, status)
  ! Taking a trace from an empty channel would make one there, for other modules to find.
  if (pending == 0) call knl_set_input_trace_buffer_flag(1, knl_keep_trace)

  call find(state)
  if (.not. associated(state)) then
    call knl_set_data_channel_flag(output, knl_end_of_data) ! do not ask again
  else if (pending == 0) then
    call finish(state, output)
  else
    call consume(state, input, output)
  end if
end function process

integer function postprocess()
  use, intrinsic :: iso_c_binding, only: c_null_ptr
  use module_tools, only: job_has_failed, keep_address
  use stack_job
  implicit none
  type(stack_state), pointer :: state

  postprocess = 0
  call find(state)
  if (.not. associated(state)) return
  if (.not. job_has_failed()) call warn_of_groups(state)
  deallocate (state)
  call keep_address(c_null_ptr)
end function postprocess
