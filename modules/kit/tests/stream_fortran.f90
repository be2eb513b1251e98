! Does with traces what StreamTest asks for, by the stream form in Fortran.
module stream_fortran_job
  use, intrinsic :: iso_c_binding, only: c_associated, c_float, c_int, c_null_ptr, c_ptr
  use stream_fortran_parameters
  use vorn_kit
  use vorn_knl
  use vorn_stream
  implicit none
  private

  type, extends(vorn_stream_module), public :: stream_state
    type(parameters) :: set
    type(c_ptr) :: queue = c_null_ptr
    integer(c_int) :: taken = 0
  contains
    procedure :: prepare
    procedure :: on_trace
    procedure :: on_end
    procedure :: finish
  end type stream_state

contains

  subroutine prepare(state, good)
    class(stream_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input, output
    integer(c_int) :: length, interval, status, channel
    character(len=:), allocatable :: keys(:)
    integer :: i

    call read_parameters(state%set, good)
    if (.not. good) return
    call knl_get_input_trace_buffer(input, 1, status)
    if (status == 0) then
      call knl_get_trace_length(input, length, status)
      call knl_get_trace_sample_interval(input, interval, status)
      channel = 1
      do
        call knl_bld_output_trace_buffer(channel, length, interval, input, status)
        if (status /= 0) exit
        channel = channel + 1
      end do
      if (state%set%length > 0) &
          call knl_bld_output_trace_buffer(1, state%set%length, 4000, input, status)
    else
      call knl_bld_output_trace_buffer(1, 2, 2000, c_null_ptr, status)
    end if
    call knl_get_output_trace_buffer(output, 1, status)
    if (status == 0) call vorn_build_queue(state%io, output, state%queue)
    if (state%set%mode == mode_match) then
      allocate (character(len=32) :: keys(size(state%set%keys)))
      do i = 1, size(keys)
        keys(i) = state%set%keys(i)%text
      end do
      call vorn_match(state%io, keys, good)
    end if
    if (.not. good .or. state%set%fails /= fails_prepare) return
    call vorn_fail('told to fail in prepare')
    good = .false.
  end subroutine prepare

  integer(c_int) function number_of(set)
    type(c_ptr), intent(in) :: set
    integer(c_int) :: status

    number_of = 0
    call knl_get_trace_attribute(set, 'number', number_of, status)
  end function number_of

  subroutine write_fresh(state, output, number)
    class(stream_state), intent(inout) :: state
    integer, intent(in) :: output
    integer(c_int), intent(in) :: number
    type(c_ptr) :: trace
    real(c_float), pointer :: samples(:)
    integer(c_int) :: status

    call vorn_emit(state%io, output, trace)
    if (.not. c_associated(trace)) return
    call knl_set_trace_attribute(trace, 'number', number, status)
    call knl_get_trace_samples(trace, samples, status)
    if (status == 0) samples = real(number, c_float)
  end subroutine write_fresh

  ! Which inputs have a trace, and which have ended, in digits from the first input on.
  subroutine join(state)
    class(stream_state), intent(inout) :: state
    type(c_ptr) :: trace, first
    integer(c_int) :: number, ended, status
    integer :: i

    number = 0
    ended = 0
    first = c_null_ptr
    do i = 1, vorn_inputs(state%io)
      trace = vorn_trace(state%io, i)
      number = 10 * number
      if (c_associated(trace)) number = number + number_of(trace)
      ended = 10 * ended + merge(1, 0, vorn_has_ended(state%io, i))
      if (.not. c_associated(first)) first = trace
    end do
    call vorn_emit_copy(state%io, 1, first, trace)
    call knl_set_trace_attribute(trace, 'number', number, status)
    call knl_set_trace_attribute(trace, 'ended', ended, status)
  end subroutine join

  subroutine burst(state, input)
    class(stream_state), intent(inout) :: state
    type(c_ptr), intent(in) :: input
    type(c_ptr) :: trace, last
    integer(c_int) :: status
    integer :: i

    if (state%set%n > 0) call vorn_emit_trace(state%io, 1, input, trace)
    do i = 2, state%set%n
      last = trace
      call vorn_emit_copy(state%io, 1, last, trace)
      call knl_set_trace_attribute(trace, 'number', number_of(trace) + 100, status)
    end do
  end subroutine burst

  subroutine look_ahead(state, input)
    class(stream_state), intent(inout) :: state
    type(c_ptr), intent(in) :: input
    integer(c_int) :: queued, status

    if (mod(state%taken, 2) == 0) then
      call vorn_queue_copy(state%io, state%queue, input)
    else
      call vorn_queue_trace(state%io, state%queue, input)
    end if
    call knl_get_number_of_traces(state%queue, queued, status)
    if (queued <= state%set%n) return
    call vorn_emit_trace(state%io, 1, state%queue)
    call vorn_drop_queued(state%queue, 1)
  end subroutine look_ahead

  subroutine on_trace(state, good)
    class(stream_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input, trace
    integer(c_int) :: number, status

    input = vorn_trace(state%io, 1)
    state%taken = state%taken + 1
    select case (state%set%mode)
    case (mode_pass, mode_first)
      call vorn_emit_trace(state%io, 1, input)
    case (mode_copy)
      call vorn_emit_copy(state%io, 1, input)
    case (mode_burst)
      call burst(state, input)
    case (mode_fresh)
      call write_fresh(state, 1, number_of(input))
    case (mode_change)
      number = number_of(input)
      call vorn_emit_trace(state%io, 1, input, trace)
      call knl_set_trace_attribute(trace, 'late', 1000 + number, status)
    case (mode_tail)
      call vorn_queue_trace(state%io, state%queue, input)
    case (mode_ahead)
      call look_ahead(state, input)
    case (mode_join, mode_match)
      call join(state)
    case (mode_split)
      call vorn_emit_trace(state%io, 1 + mod(number_of(input), 2), input)
    case (mode_source)
      call write_fresh(state, 1, 2 * state%taken - 1)
      call write_fresh(state, 1, 2 * state%taken)
    end select
    if ((state%set%mode == mode_first .or. state%set%mode == mode_source) .and. &
        state%taken == state%set%n) call vorn_stop(state%io)
    if (state%set%fails /= fails_trace .or. state%taken < 2) return
    call vorn_fail('told to fail in on_trace')
    good = .false.
  end subroutine on_trace

  subroutine on_end(state, good)
    class(stream_state), intent(inout) :: state
    logical, intent(inout) :: good
    integer(c_int) :: queued, i, status

    call knl_send_message(knl_message_information, 'end after ' // vorn_to_text(state%taken))
    if (state%set%mode == mode_count) call write_fresh(state, 1, state%taken)
    queued = 0
    if (c_associated(state%queue)) call knl_get_number_of_traces(state%queue, queued, status)
    do i = 1, queued
      if (state%set%mode == mode_tail) then
        call vorn_emit_trace(state%io, 1, state%queue, number=queued + 1 - i)
      else
        call vorn_emit_copy(state%io, 1, state%queue, number=i)
      end if
    end do
    if (state%set%mode == mode_split) call write_fresh(state, 3, state%taken)
    if (state%set%fails /= fails_end) return
    call vorn_fail('told to fail in on_end')
    good = .false.
  end subroutine on_end

  subroutine finish(state)
    class(stream_state), intent(inout) :: state

    call knl_send_message(knl_message_information, 'finish after ' // vorn_to_text(state%taken))
  end subroutine finish
end module stream_fortran_job

subroutine vorn_new_module(state)
  use stream_fortran_job, only: stream_state
  use vorn_kit, only: vorn_module
  implicit none
  class(vorn_module), pointer, intent(out) :: state

  allocate (stream_state :: state)
end subroutine vorn_new_module
