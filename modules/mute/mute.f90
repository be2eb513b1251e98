! mute: sets parts of traces to zero, by times that depend on a header word.
module mute_job
  use, intrinsic :: iso_c_binding, only: c_double, c_float, c_int, c_int64_t, c_ptr
  use mute_math
  use mute_parameters
  use vorn_kit
  use vorn_knl
  implicit none
  private

  ! What the module keeps from one call to the next.
  type, extends(vorn_module), public :: mute_state
    type(parameters) :: set
    real(c_double) :: taper    ! samples
    real(c_double) :: interval ! seconds
    integer(c_int64_t) :: traces = 0    ! so far
    logical :: has_positions = .false.  ! one of them had a value that is not 0
  contains
    procedure :: prepare
    procedure :: process
    procedure :: finish
    procedure :: save_part
    procedure :: merge_part
  end type mute_state

  ! Before all samples and after them, in the range of integers.
  real(c_double), parameter :: beyond = 2.0e9_c_double
  ! Characters of the points in the history: with the rest of the line, three or four lines of a
  ! text header.
  integer, parameter :: room_for_points = 200

contains

  subroutine prepare(state, good)
    class(mute_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input
    integer(c_int) :: interval, status ! microseconds

    call vorn_required_input(input, good)
    ! The modules before this one have described their outputs by now.
    if (good) call vorn_build_required_output(input, good)
    if (good) call read_parameters(state%set, good)
    if (good) call check_points(state%set, good)
    if (.not. good) return
    call knl_get_trace_sample_interval(input, interval, status)
    good = interval > 0
    if (.not. good) then
      call vorn_fail_without_interval()
      return
    end if
    state%interval = interval * 1.0e-6_c_double
    state%taper = state%set%taper / state%interval
    call vorn_add_history(history_of(state%set))
  end subroutine prepare

  ! One trace in, one trace out.
  subroutine process(state, good)
    class(mute_state), intent(inout) :: state
    logical, intent(inout) :: good
    real(c_float), pointer :: samples(:)
    real(c_double) :: position, start
    type(c_ptr) :: input, output
    integer(c_int) :: length, number, status

    call knl_get_input_trace_buffer(input, 1, status)
    call knl_get_output_trace_buffer(output, 1, status)
    call read_header(state, input, position, start, good)
    if (.not. good) return
    call vorn_pass_trace(input, output, number)
    call knl_get_trace_samples(output, samples, status, number)
    if (status == 0) then
      call apply(state, position, start, samples)
    else
      call knl_get_trace_length(output, length, status)
      if (length > 0) call vorn_fail_without_samples(output, good)
    end if
  end subroutine process

  !> Warns of times that depend on a word without values.
  subroutine finish(state)
    class(mute_state), intent(inout) :: state

    if (vorn_job_has_failed() .or. state%has_positions) return
    if (state%traces == 0 .or. size(state%set%offsets) == 1) return
    call knl_send_message(knl_message_warning, state%set%header // ' is 0 in all ' // &
        vorn_to_text(state%traces) // ' traces, which all got the mute of ' // state%set%header // &
        ' 0; name a header word that has values with header')
  end subroutine finish

  subroutine save_part(state, file, good)
    class(mute_state), intent(inout) :: state
    type(vorn_state_file), intent(inout) :: file
    logical, intent(inout) :: good

    call vorn_put(file, state%traces)
    call vorn_put(file, state%has_positions)
    associate (unused => good)
    end associate
  end subroutine save_part

  subroutine merge_part(state, file, good)
    class(mute_state), intent(inout) :: state
    type(vorn_state_file), intent(inout) :: file
    logical, intent(inout) :: good
    integer(c_int64_t) :: traces
    logical :: has_positions

    call vorn_get(file, traces, good)
    call vorn_get(file, has_positions, good)
    if (.not. good) return
    state%traces = state%traces + traces
    state%has_positions = state%has_positions .or. has_positions
  end subroutine merge_part

  ! ---- Parameters. `good` is false after a message. ----

  subroutine check_points(set, good)
    type(parameters), intent(in) :: set
    logical, intent(inout) :: good
    integer(c_int) :: i, count

    count = size(set%offsets, kind=c_int)
    good = .false.
    if (size(set%times) /= count) then
      call vorn_fail('offsets and times have ' // vorn_to_text(count) // ' and ' // &
          vorn_to_text(size(set%times, kind=c_int)) // ' elements; give the same number of each')
    else if (set%mode == mode_surgical .and. size(set%end_times) /= count) then
      call vorn_fail('offsets and end_times have ' // vorn_to_text(count) // ' and ' // &
          vorn_to_text(size(set%end_times, kind=c_int)) // ' elements; give the same number of each')
    else if (set%mode /= mode_surgical .and. size(set%end_times) > 0) then
      call vorn_fail('end_times are given and mode is ' // mode_word(set%mode) // &
          '; only mode surgical uses them')
    else
      good = .true.
      do i = 1, count
        if (good) call check_point(set, i, good)
      end do
    end if
  end subroutine check_points

  subroutine check_point(set, i, good)
    type(parameters), intent(in) :: set
    integer(c_int), intent(in) :: i
    logical, intent(inout) :: good

    good = .false.
    if (i > 1) then
      if (set%offsets(i) <= set%offsets(i - 1)) then
        call vorn_fail('offsets have ' // vorn_to_text(set%offsets(i)) // ' after ' // &
            vorn_to_text(set%offsets(i - 1)) // '; give them in ascending order')
        return
      end if
    end if
    if (set%mode == mode_surgical) then
      if (set%end_times(i) < set%times(i)) then
        call vorn_fail('at offset ' // vorn_to_text(set%offsets(i)) // ' the mute begins at ' // &
            vorn_to_text(set%times(i)) // ' s and ends at ' // vorn_to_text(set%end_times(i)) // &
            ' s; give an end that is not before the beginning')
        return
      end if
    end if
    good = .true.
  end subroutine check_point

  !> One line, with as many of the points as it has room for.
  function history_of(set) result(line)
    type(parameters), intent(in) :: set
    character(len=:), allocatable :: line, points, one
    integer(c_int) :: i, count

    count = size(set%offsets, kind=c_int)
    points = ''
    do i = 1, count
      one = ' ' // vorn_to_text(set%offsets(i)) // ':' // vorn_to_text(set%times(i))
      if (set%mode == mode_surgical) one = one // ':' // vorn_to_text(set%end_times(i))
      if (len(points) + len(one) > room_for_points) then
        points = points // ' and ' // vorn_to_text(count - i + 1) // ' more'
        exit
      end if
      points = points // one
    end do
    line = 'mute mode=' // mode_word(set%mode) // ' header=' // set%header
    if (.not. set%absolute) line = line // ' absolute=no'
    line = line // ' taper=' // vorn_to_text(set%taper) // ' s points=' // &
        vorn_to_text(count) // ' (' // set%header // &
        merge(':s:s)', ':s)  ', set%mode == mode_surgical)
    line = trim(line) // points
  end function history_of

  !> Reads the header of the first trace of `input`: the word that times depend on, and the time of
  !> the first sample in seconds. `good` is false after a message.
  subroutine read_header(state, input, position, start, good)
    class(mute_state), intent(inout) :: state
    type(c_ptr), intent(in) :: input
    real(c_double), intent(out) :: position, start
    logical, intent(inout) :: good
    integer(c_int) :: delay, status

    position = 0
    start = 0
    call knl_get_trace_attribute(input, state%set%header, position, status)
    good = status == 0
    if (.not. good) then
      call vorn_fail('the traces have no header word "' // state%set%header // &
          '"; name one that they have with header')
      return
    end if
    state%traces = state%traces + 1
    state%has_positions = state%has_positions .or. position /= 0
    if (state%set%absolute) position = abs(position)
    delay = 0 ! milliseconds
    call knl_get_trace_attribute(input, 'delrt', delay, status)
    start = delay * 1.0e-3_c_double
  end subroutine read_header

  subroutine apply(state, position, start, samples)
    class(mute_state), intent(in) :: state
    real(c_double), intent(in) :: position, start
    real(c_float), intent(inout) :: samples(:)
    real(c_double) :: edge
    integer(c_int) :: count

    count = size(samples, kind=c_int)
    edge = edge_of(state%set%times)
    select case (state%set%mode)
    case (mode_top)
      call mute_between(samples, count, -beyond, edge, state%taper)
    case (mode_bottom)
      call mute_between(samples, count, edge, beyond, state%taper)
    case default
      call mute_between(samples, count, edge, edge_of(state%set%end_times), state%taper)
    end select

  contains

    real(c_double) function edge_of(times)
      real(c_double), intent(in) :: times(:)

      edge_of = mute_edge(mute_interpolate(position, state%set%offsets, times, &
          size(times, kind=c_int)), start, state%interval)
    end function edge_of
  end subroutine apply

end module mute_job

subroutine vorn_new_module(state)
  use mute_job, only: mute_state
  use vorn_kit, only: vorn_module
  implicit none
  class(vorn_module), pointer, intent(out) :: state

  allocate (mute_state :: state)
end subroutine vorn_new_module
