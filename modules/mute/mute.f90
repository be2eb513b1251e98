! mute: sets parts of traces to zero, by times that depend on a header word.
module mute_job
  use, intrinsic :: iso_c_binding, only: c_associated, c_double, c_f_pointer, c_float, c_int, &
      c_int64_t, c_ptr
  use module_tools
  use mute_math
  use vorn_knl
  implicit none
  private
  public :: mute_state, read_parameters, history_of, read_header, apply, find, warn_of_zeros

  ! What the module keeps from one call to the next.
  type :: mute_state
    character(len=:), allocatable :: mode   ! top, bottom or surgical
    character(len=:), allocatable :: header ! the word that times depend on
    logical :: absolute                     ! its sign does not count
    real(c_double), allocatable :: positions(:) ! values of the word, ascending
    real(c_double), allocatable :: times(:)     ! seconds, as many
    real(c_double), allocatable :: end_times(:) ! likewise, for the mode surgical
    real(c_double) :: taper    ! samples
    real(c_double) :: interval ! seconds
    integer(c_int64_t) :: traces = 0    ! so far
    logical :: has_positions = .false.  ! one of them had a value that is not 0
  end type mute_state

  ! Before all samples and behind them; integers reach as far.
  real(c_double), parameter :: beyond = 2.0e9_c_double
  ! Characters of the points in the history: with the rest of the line, three or four lines of a
  ! text header.
  integer, parameter :: room_for_points = 200

contains

  !> `good` is false after a message.
  subroutine read_parameters(interval, state, good)
    integer(c_int), intent(in) :: interval ! microseconds
    type(mute_state), intent(inout) :: state
    logical, intent(out) :: good
    character(len=255) :: mode, header
    integer(c_int) :: absolute
    real(c_double) :: taper ! seconds
    logical :: found

    mode = 'top'
    header = 'offset'
    absolute = 1
    taper = 0.02_c_double
    call knl_get_module_parameter('mode', mode, found)
    call knl_get_module_parameter('header', header, found)
    call knl_get_module_parameter('absolute', absolute, found)
    call knl_get_module_parameter('taper', taper, found)
    state%mode = trim(mode)
    state%header = trim(header)
    state%absolute = absolute /= 0
    state%interval = interval * 1.0e-6_c_double

    good = .false.
    if (mode /= 'top' .and. mode /= 'bottom' .and. mode /= 'surgical') then
      call fail('mute', 'mode is "' // trim(mode) // '"; give top, bottom or surgical')
    else if (.not. (taper >= 0 .and. taper <= huge(taper))) then
      call fail('mute', 'taper is ' // text_of(taper) // ' s; give a time of at least 0')
    else if (interval <= 0) then
      if (.not. job_has_failed()) call fail('mute', &
          'the input has no sample interval; the module before this one has to set it')
    else
      state%taper = taper / state%interval
      call read_points(state, good)
    end if
  end subroutine read_parameters

  subroutine read_points(state, good)
    type(mute_state), intent(inout) :: state
    logical, intent(out) :: good
    integer :: i, count

    call read_list('offsets', state%positions)
    call read_list('times', state%times)
    call read_list('end_times', state%end_times)
    count = size(state%positions)

    good = .false.
    if (count == 0) then
      call fail('mute', 'offsets are missing; give the offsets at which times are given')
    else if (size(state%times) /= count) then
      call fail('mute', 'offsets and times have ' // text_of(real(count, c_double)) // ' and ' // &
          text_of(real(size(state%times), c_double)) // ' elements; give as many of each')
    else if (state%mode == 'surgical' .and. size(state%end_times) /= count) then
      call fail('mute', 'offsets and end_times have ' // text_of(real(count, c_double)) // &
          ' and ' // text_of(real(size(state%end_times), c_double)) // &
          ' elements; give as many of each')
    else if (state%mode /= 'surgical' .and. size(state%end_times) > 0) then
      call fail('mute', 'end_times are given and mode is ' // state%mode // &
          '; they go with mode surgical')
    else
      good = .true.
      do i = 1, count
        if (good) call check_point(state, i, good)
      end do
    end if
  end subroutine read_points

  !> An empty list where the parameter is missing or no list of numbers.
  subroutine read_list(name, list)
    character(len=*), intent(in) :: name
    real(c_double), allocatable, intent(out) :: list(:)
    logical :: found

    allocate (list(0))
    call knl_get_module_parameter(name, list, found)
  end subroutine read_list

  subroutine check_point(state, i, good)
    type(mute_state), intent(in) :: state
    integer, intent(in) :: i
    logical, intent(out) :: good

    good = .false.
    if (.not. (abs(state%positions(i)) <= huge(1.0_c_double) .and. &
        abs(state%times(i)) <= huge(1.0_c_double))) then
      call fail('mute', 'the time at offset ' // text_of(state%positions(i)) // ' is ' // &
          text_of(state%times(i)) // ' s; give finite numbers')
      return
    end if
    if (i > 1) then
      if (.not. state%positions(i) > state%positions(i - 1)) then
        call fail('mute', 'offsets have ' // text_of(state%positions(i)) // ' behind ' // &
            text_of(state%positions(i - 1)) // '; give them in ascending order')
        return
      end if
    end if
    if (state%mode == 'surgical') then
      if (.not. (state%end_times(i) >= state%times(i) .and. &
          state%end_times(i) <= huge(1.0_c_double))) then
        call fail('mute', 'at offset ' // text_of(state%positions(i)) // ' the mute begins at ' // &
            text_of(state%times(i)) // ' s and ends at ' // text_of(state%end_times(i)) // &
            ' s; give an end that is not before the beginning')
        return
      end if
    end if
    good = .true.
  end subroutine check_point

  !> One line, with as many of the points as it has room for.
  function history_of(state) result(line)
    type(mute_state), intent(in) :: state
    character(len=:), allocatable :: line, points, one
    integer :: i, count

    count = size(state%positions)
    points = ''
    do i = 1, count
      one = ' ' // text_of(state%positions(i)) // ':' // text_of(state%times(i))
      if (state%mode == 'surgical') one = one // ':' // text_of(state%end_times(i))
      if (len(points) + len(one) > room_for_points) then
        points = points // ' and ' // text_of(real(count - i + 1, c_double)) // ' more'
        exit
      end if
      points = points // one
    end do
    line = 'mute mode=' // state%mode // ' header=' // state%header
    if (.not. state%absolute) line = line // ' absolute=no'
    line = line // ' taper=' // text_of(state%taper * state%interval) // ' s points=' // &
        text_of(real(count, c_double)) // ' (' // state%header // &
        merge(':s:s)', ':s)  ', state%mode == 'surgical')
    line = trim(line) // points
  end function history_of

  !> Reads the header of the first trace of `input`: the word that times depend on, and the time of
  !> the first sample in seconds. `good` is false after a message.
  subroutine read_header(state, input, position, start, good)
    type(mute_state), intent(inout) :: state
    type(c_ptr), intent(in) :: input
    real(c_double), intent(out) :: position, start
    logical, intent(out) :: good
    integer(c_int) :: delay, status

    position = 0
    start = 0
    call knl_get_trace_attribute(input, state%header, position, status)
    good = status == 0
    if (.not. good) then
      call fail('mute', 'the traces have no header word "' // state%header // &
          '"; name one that they have with header')
      return
    end if
    state%traces = state%traces + 1
    state%has_positions = state%has_positions .or. position /= 0
    if (state%absolute) position = abs(position)
    delay = 0 ! milliseconds
    call knl_get_trace_attribute(input, 'delrt', delay, status)
    start = delay * 1.0e-3_c_double
  end subroutine read_header

  subroutine apply(state, position, start, samples)
    type(mute_state), intent(in) :: state
    real(c_double), intent(in) :: position, start
    real(c_float), intent(inout) :: samples(:)
    real(c_double) :: edge
    integer(c_int) :: count

    count = size(samples, kind=c_int)
    edge = edge_of(state%times)
    select case (state%mode)
    case ('top')
      call mute_between(samples, count, -beyond, edge, state%taper)
    case ('bottom')
      call mute_between(samples, count, edge, beyond, state%taper)
    case default
      call mute_between(samples, count, edge, edge_of(state%end_times), state%taper)
    end select

  contains

    real(c_double) function edge_of(times)
      real(c_double), intent(in) :: times(:)

      edge_of = mute_edge(mute_interpolate(position, state%positions, times, &
          size(times, kind=c_int)), start, state%interval)
    end function edge_of
  end subroutine apply

  !> Times that depend on a word that nobody has written.
  subroutine warn_of_zeros(state)
    type(mute_state), intent(in) :: state

    if (state%traces == 0 .or. state%has_positions .or. size(state%positions) == 1) return
    call knl_send_message(knl_message_warning, state%header // ' is 0 in all ' // &
        text_of(real(state%traces, c_double)) // ' traces, which all got the mute of ' // &
        state%header // ' 0; name a header word that has values with header')
  end subroutine warn_of_zeros

  !> Null where preprocess has failed.
  subroutine find(state)
    type(mute_state), pointer, intent(out) :: state
    type(c_ptr) :: address

    nullify (state)
    address = kept_address()
    if (c_associated(address)) call c_f_pointer(address, state)
  end subroutine find
end module mute_job

integer function preprocess()
  use, intrinsic :: iso_c_binding, only: c_int, c_loc, c_ptr
  use module_tools
  use mute_job
  use vorn_knl
  implicit none
  type(mute_state), pointer :: state
  type(c_ptr) :: input
  integer(c_int) :: length, interval, status
  logical :: good

  preprocess = 0
  call knl_get_input_trace_buffer(input, 1, status)
  if (status /= 0) then
    call fail('mute', 'the module has no input; connect one')
    return
  end if
  ! The modules before this one have described their outputs by now.
  call knl_get_trace_length(input, length, status)
  call knl_get_trace_sample_interval(input, interval, status)
  call knl_bld_output_trace_buffer(1, length, interval, input, status)
  if (status /= 0) then
    call fail('mute', 'the module has no output; connect one')
    return
  end if

  allocate (state)
  call read_parameters(interval, state, good)
  if (.not. good) then
    deallocate (state)
    return
  end if
  call keep_address(c_loc(state))
  call knl_set_metadata_value(knl_scope_module, 'history$', history_of(state))
end function preprocess

! One trace in, one trace out, until a trace has not the header word.
integer function process()
  use, intrinsic :: iso_c_binding, only: c_double, c_float, c_int, c_ptr
  use mute_job
  use vorn_knl
  implicit none
  type(mute_state), pointer :: state
  real(c_float), pointer :: samples(:)
  real(c_double) :: position, start
  type(c_ptr) :: input, output
  integer(c_int) :: number, status
  logical :: good

  process = 0
  call knl_get_output_trace_buffer(output, 1, status)
  if (status /= 0) return
  call find(state)
  good = associated(state)
  if (good) then
    call knl_get_input_trace_buffer(input, 1, status)
    call read_header(state, input, position, start, good)
  end if
  if (.not. good) then
    call knl_set_data_channel_flag(output, knl_end_of_data) ! do not ask again
    return
  end if
  call knl_get_number_of_traces(output, number, status)
  number = number + 1
  ! Header, samples, and the flag that says whether this is the last trace.
  call knl_copy_trace_to_trace(input, output, .true., .true., status, 1, number)
  call knl_get_trace_samples(output, samples, status, number)
  if (status == 0) call apply(state, position, start, samples)
end function process

integer function postprocess()
  use, intrinsic :: iso_c_binding, only: c_null_ptr
  use module_tools, only: job_has_failed, keep_address
  use mute_job
  implicit none
  type(mute_state), pointer :: state

  postprocess = 0
  call find(state)
  if (.not. associated(state)) return
  if (.not. job_has_failed()) call warn_of_zeros(state)
  deallocate (state)
  call keep_address(c_null_ptr)
end function postprocess
