! The stream form of a module in Fortran: for modules that give another number of traces than they
! take, or take traces of several inputs. Such modules hold back, leave out, multiply, gather, sort or
! join traces. The form keeps the rules for the end of the data.
!
!     module thin_job
!       use thin_parameters   ! made from thin.yaml
!       use vorn_kit
!       use vorn_knl
!       use vorn_stream
!
!       type, extends(vorn_stream_module) :: thin_state
!         type(parameters) :: set
!         integer :: taken = 0
!       contains
!         procedure :: prepare   ! once, before the first trace: describes the output
!         procedure :: on_trace  ! for each trace of the input
!       end type thin_state
!
!     contains
!
!       subroutine on_trace(state, good)
!         class(thin_state), intent(inout) :: state
!         logical, intent(inout) :: good
!
!         if (mod(state%taken, state%set%step) == 0) &
!             call vorn_emit_trace(state%io, 1, vorn_trace(state%io, 1))
!         state%taken = state%taken + 1
!       end subroutine on_trace
!     ...
!     end module thin_job
!
! `vorn_new_module` is that of vorn_kit. Two more procedures may be overridden: `on_end`, once after the
! last trace, also when there was none, to emit what is left, and `finish`, when all modules have ended.
! A procedure that sets `good` to false has said why with vorn_fail: what was emitted goes out, the state
! is deallocated, and all outputs are at the end of their data.
!
! Inputs, outputs and traces are counted from 1. Traces are handed over as trace sets of which trace 1 is
! meant: what the functions of vorn_knl do without a trace number. An emitted trace may be changed until
! the next one is emitted to the same output, or until the procedure returns.
!
! What the form does:
! - It asks for calls at the end of the data, and keeps the kernel from making traces in inputs that have
!   ended.
! - It holds the trace back that was emitted last to an output, until another one follows or the data end:
!   the last trace of each output carries the mark of the end, and an output without traces is marked
!   itself. A trace is held in a work buffer of the output's layout, where it was written anyway: holding
!   it costs a move of its address, and no copy.
! - Work buffers from vorn_stream_buffers on are the form's, those below it the module's. The traces of all
!   of them are destroyed at the end of the job.
module vorn_stream
  use, intrinsic :: iso_c_binding, only: c_associated, c_double, c_float, c_int, c_null_ptr, c_ptr
  use vorn_kit, only: vorn_end_outputs, vorn_fail, vorn_keep_empty_inputs, vorn_module, vorn_to_text
  use vorn_knl
  implicit none
  private

  !> The first work buffer that belongs to the form, counted from 1.
  integer(c_int), parameter, public :: vorn_stream_buffers = 17
  !> Header words that inputs are matched by, at most.
  integer, parameter, public :: vorn_most_keys = 8

  ! One input.
  type :: stream_input
    type(c_ptr) :: set = c_null_ptr
    logical :: is_in_row = .false.    ! its first trace is one of this call
    logical :: is_last = .false.      ! and no further one follows it
    logical :: has_ended = .false.    ! every trace has been in a call
    logical :: has_key = .false.      ! `key` is that of the first trace
    logical :: has_last_key = .false. ! a trace has been in a call
    real(c_double) :: key(vorn_most_keys) = 0  ! of the first trace
    real(c_double) :: last(vorn_most_keys) = 0 ! of the last trace that was in a call
  end type stream_input

  ! One output.
  type :: stream_output
    type(c_ptr) :: set = c_null_ptr
    type(c_ptr) :: held = c_null_ptr ! the work buffer of the trace that was emitted last
    logical :: is_held = .false.
  end type stream_output

  !> The inputs and outputs of a stream module.
  type, public :: vorn_io
    private
    type(stream_input), allocatable :: inputs(:)
    type(stream_output), allocatable :: outputs(:)
    integer(c_int) :: buffers = 0 ! of the form, in use
    integer :: keys = 0
    character(len=64) :: words(vorn_most_keys) = ''
    logical :: descends(vorn_most_keys) = .false.
    type(c_ptr) :: key_list = c_null_ptr
    logical :: has_stopped = .false.
    logical :: has_ended = .false.
    logical :: has_failed = .false.
  end type vorn_io

  !> The state of a stream module, and what it does; to be extended.
  type, abstract, extends(vorn_module), public :: vorn_stream_module
    type(vorn_io) :: io
  contains
    !> For each trace of the input, or for each row of traces of several inputs. A module without inputs
    !> is called until it has called vorn_stop.
    procedure(stream_step), deferred :: on_trace
    !> Once after the last trace, to emit what is left; also when there was no trace.
    procedure :: on_end => end_without_traces
    ! Of the form, not to be overridden. (As non_overridable, gfortran 12 leaves them out of the table by
    ! which vorn_kit calls them.)
    procedure :: process => process_row
    procedure :: begin => begin_stream
    procedure :: give_up => give_all
  end type vorn_stream_module

  abstract interface
    !> `good` is true at the call; false after vorn_fail.
    subroutine stream_step(state, good)
      import :: vorn_stream_module
      class(vorn_stream_module), intent(inout) :: state
      logical, intent(inout) :: good
    end subroutine stream_step
  end interface

  public :: vorn_trace, vorn_has_ended, vorn_stop, vorn_match, vorn_inputs, vorn_outputs
  public :: vorn_emit, vorn_emit_copy, vorn_emit_trace
  public :: vorn_build_queue, vorn_queue_trace, vorn_queue_copy, vorn_drop_queued, vorn_clear_queue

contains

  ! ---- Inputs of one call ----

  !> The number of inputs that are connected.
  integer function vorn_inputs(io)
    type(vorn_io), intent(in) :: io

    vorn_inputs = size(io%inputs)
  end function vorn_inputs

  !> The number of outputs that are connected.
  integer function vorn_outputs(io)
    type(vorn_io), intent(in) :: io

    vorn_outputs = size(io%outputs)
  end function vorn_outputs

  !> The trace of this call that comes from an input, as the first trace of the set that is returned.
  !> c_null_ptr where the input has none: inputs are taken in step, one trace of each, until they have
  !> ended; inputs that are matched by key have none where no trace of theirs has the key of this call.
  function vorn_trace(io, input) result(set)
    type(vorn_io), intent(in) :: io
    integer, intent(in) :: input
    type(c_ptr) :: set

    set = c_null_ptr
    if (input < 1 .or. input > size(io%inputs)) return
    if (io%inputs(input)%is_in_row) set = io%inputs(input)%set
  end function vorn_trace

  !> Whether all traces of an input have been in a call, this one included, and the form knows that no
  !> other follows: it may learn so only in the next call.
  logical function vorn_has_ended(io, input)
    type(vorn_io), intent(in) :: io
    integer, intent(in) :: input

    vorn_has_ended = .true.
    if (input < 1 .or. input > size(io%inputs)) return
    associate (one => io%inputs(input))
      vorn_has_ended = one%has_ended .or. (one%is_in_row .and. one%is_last)
    end associate
  end function vorn_has_ended

  !> Takes no further trace: on_end follows, and the outputs end. A source ends so.
  subroutine vorn_stop(io)
    type(vorn_io), intent(inout) :: io

    io%has_stopped = .true.
  end subroutine vorn_stop

  !> In prepare: inputs are matched by these header words instead of in step. A call has a trace of each
  !> input that has the smallest key of all; of several traces with one key the first ones go together,
  !> then the second ones. The traces of each input must be in ascending order of the key, of a word with
  !> "-" before its name in descending order; the module fails where they are not. Words are compared as
  !> double precision numbers.
  subroutine vorn_match(io, words, good)
    type(vorn_io), intent(inout) :: io
    character(len=*), intent(in) :: words(:)
    logical, intent(inout) :: good
    integer :: i

    if (size(words) < 1 .or. size(words) > vorn_most_keys) then
      call vorn_fail('inputs are matched by ' // vorn_to_text(size(words, kind=c_int)) // &
          ' header words; give 1 to ' // vorn_to_text(int(vorn_most_keys, c_int)))
      good = .false.
      return
    end if
    io%keys = size(words)
    do i = 1, io%keys
      io%descends(i) = words(i)(:1) == '-'
      io%words(i) = words(i)
      if (io%descends(i)) io%words(i) = words(i)(2:)
    end do
  end subroutine vorn_match

  ! ---- Emission. `trace` is the set whose first trace was emitted; c_null_ptr without the output, the
  !      trace to emit, or memory. ----

  !> Emits a new trace of zeros, with the output's length.
  subroutine vorn_emit(io, output, trace)
    type(vorn_io), intent(inout) :: io
    integer, intent(in) :: output
    type(c_ptr), intent(out), optional :: trace
    integer(c_int) :: status

    if (present(trace)) trace = c_null_ptr
    if (.not. is_output(io, output)) return
    call make_place(io%outputs(output), io%has_failed)
    call knl_set_number_of_traces(io%outputs(output)%held, 1, status)
    call hold(io%outputs(output), io%has_failed, trace)
  end subroutine vorn_emit

  !> Emits a copy of a trace, the first one or number `number` of a trace set: an input's trace, an emitted
  !> one, one of a queue. Samples beyond the output's length are cut, missing ones are 0.
  subroutine vorn_emit_copy(io, output, from, trace, number)
    type(vorn_io), intent(inout) :: io
    integer, intent(in) :: output
    type(c_ptr), intent(in) :: from
    type(c_ptr), intent(out), optional :: trace
    integer(c_int), intent(in), optional :: number
    integer(c_int) :: status, place, which

    which = 1
    if (present(number)) which = number
    if (present(trace)) trace = c_null_ptr
    if (.not. (is_output(io, output) .and. has_trace(from, which))) return
    associate (one => io%outputs(output))
      if (one%is_held .and. c_associated(from, one%held)) then
        ! The trace that is held: its copy goes before it.
        call knl_get_number_of_traces(one%set, place, status)
        call knl_copy_trace_to_trace(from, one%set, .true., .true., status, 1, place + 1)
        if (has_samples(one%set, place + 1, io%has_failed) .and. present(trace)) trace = from
        return
      end if
      call make_place(one, io%has_failed)
      call knl_copy_trace_to_trace(from, one%held, .true., .true., status, which, 1)
      if (status == 1) call hold(one, io%has_failed, trace)
    end associate
  end subroutine vorn_emit_copy

  !> Emits a trace of a queue or of an input itself, the first one or number `number`: nothing is copied where
  !> the lengths are equal, and the header is laid out as in the output. The place that it had is empty
  !> then (the numbers of others stay), and the trace is not to be used there any more.
  subroutine vorn_emit_trace(io, output, from, trace, number)
    type(vorn_io), intent(inout) :: io
    integer, intent(in) :: output
    type(c_ptr), intent(in) :: from
    type(c_ptr), intent(out), optional :: trace
    integer(c_int), intent(in), optional :: number
    integer(c_int) :: status, which

    which = 1
    if (present(number)) which = number
    if (present(trace)) trace = c_null_ptr
    if (.not. (is_output(io, output) .and. has_trace(from, which))) return
    associate (one => io%outputs(output))
      call make_place(one, io%has_failed)
      call knl_transfer_trace_to_trace(from, one%held, which, 1, status)
      if (status == 1) then
        call mark_held(one)
        if (present(trace)) trace = one%held
      else
        call note_failure(io%has_failed, 'a trace cannot be emitted: it was given away before, or there is no '// &
            'memory for its header')
      end if
    end associate
  end subroutine vorn_emit_trace

  ! ---- Queues ----

  !> In prepare, after the outputs are described: a new queue, for traces that the module keeps. It is a work
  !> buffer, which the kernel pages to the scratch file where the job's limit of traces in memory asks for
  !> that; its traces are counted from 1. It gets the length, the interval and the header layout of `like`:
  !> those of the output, where its traces go there in the end. c_null_ptr for such a `like`.
  subroutine vorn_build_queue(io, like, queue)
    type(vorn_io), intent(inout) :: io
    type(c_ptr), intent(in) :: like
    type(c_ptr), intent(out) :: queue
    integer(c_int) :: status

    queue = c_null_ptr
    if (.not. c_associated(like)) return
    call knl_bld_work_trace_buffer_like(vorn_stream_buffers + io%buffers, like, status)
    if (status /= 0) return
    call knl_get_work_trace_buffer(queue, vorn_stream_buffers + io%buffers, status)
    io%buffers = io%buffers + 1
  end subroutine vorn_build_queue

  !> Puts the first trace of `from` at the end of a queue. The trace itself goes there, as in
  !> vorn_emit_trace, and is not to be used in `from` any more. `number`: its number in the queue; 0 when
  !> the trace does not exist, or there is no memory.
  subroutine vorn_queue_trace(io, queue, from, number)
    type(vorn_io), intent(inout) :: io
    type(c_ptr), intent(in) :: queue, from
    integer(c_int), intent(out), optional :: number
    integer(c_int) :: place, status

    if (present(number)) number = 0
    if (.not. (c_associated(queue) .and. has_trace(from, 1))) return
    call knl_get_number_of_traces(queue, place, status)
    call knl_transfer_trace_to_trace(from, queue, 1, place + 1, status)
    if (status /= 1) then
      call note_failure(io%has_failed, 'a trace cannot be kept: it was given away before, or there is no ' // &
          'memory for its header')
      return
    end if
    call knl_set_data_channel_flag(queue, 0)
    if (present(number)) number = place + 1
  end subroutine vorn_queue_trace

  !> The same with a copy.
  subroutine vorn_queue_copy(io, queue, from, number)
    type(vorn_io), intent(inout) :: io
    type(c_ptr), intent(in) :: queue, from
    integer(c_int), intent(out), optional :: number
    integer(c_int) :: place, status

    if (present(number)) number = 0
    if (.not. (c_associated(queue) .and. has_trace(from, 1))) return
    call knl_get_number_of_traces(queue, place, status)
    call knl_copy_trace_to_trace(from, queue, .true., .true., status, 1, place + 1)
    if (status /= 1) return
    call knl_set_data_channel_flag(queue, 0)
    if (has_samples(queue, place + 1, io%has_failed) .and. present(number)) number = place + 1
  end subroutine vorn_queue_copy

  !> Takes the first `count` places of a queue away, with the traces that are there; later ones move down.
  subroutine vorn_drop_queued(queue, count)
    type(c_ptr), intent(in) :: queue
    integer(c_int), intent(in) :: count
    integer(c_int) :: status
    integer :: i

    do i = 1, count
      call knl_remove_trace(queue, 1, status)
      if (status == 0) return
    end do
  end subroutine vorn_drop_queued

  !> Empties a queue.
  subroutine vorn_clear_queue(queue)
    type(c_ptr), intent(in) :: queue
    integer(c_int) :: count, status

    call knl_get_number_of_traces(queue, count, status)
    do while (count > 0)
      call knl_remove_trace(queue, count, status)
      count = count - 1
    end do
  end subroutine vorn_clear_queue

  ! ---- What the public procedures share ----

  logical function is_output(io, output)
    type(vorn_io), intent(in) :: io
    integer, intent(in) :: output

    is_output = allocated(io%outputs)
    if (is_output) is_output = output >= 1 .and. output <= size(io%outputs)
  end function is_output

  logical function has_trace(set, number)
    type(c_ptr), intent(in) :: set
    integer(c_int), intent(in) :: number
    integer(c_int) :: traces, status

    traces = 0
    if (c_associated(set)) call knl_get_number_of_traces(set, traces, status)
    has_trace = number >= 1 .and. number <= traces
  end function has_trace

  subroutine note_failure(has_failed, text)
    logical, intent(inout) :: has_failed
    character(len=*), intent(in) :: text

    if (.not. has_failed) call vorn_fail(text)
    has_failed = .true.
  end subroutine note_failure

  ! Whether a trace has samples, where it should; the module fails where not.
  logical function has_samples(set, number, has_failed)
    type(c_ptr), intent(in) :: set
    integer(c_int), intent(in) :: number
    logical, intent(inout) :: has_failed
    real(c_float), pointer :: samples(:)
    integer(c_int) :: length, status

    call knl_get_trace_length(set, length, status)
    has_samples = length <= 0
    if (has_samples) return
    call knl_get_trace_samples(set, samples, status, number)
    has_samples = status == 0
    if (.not. has_samples) call note_failure(has_failed, 'not enough memory for a trace of ' // &
        vorn_to_text(length) // ' samples; give the job a lower limit of traces in memory')
  end function has_samples

  ! Empties the place of the trace that was emitted last.
  subroutine make_place(one, has_failed)
    type(stream_output), intent(inout) :: one
    logical, intent(inout) :: has_failed
    integer(c_int) :: length, status

    call give_held(one, has_failed)
    call knl_get_trace_length(one%set, length, status)
    call knl_set_trace_length(one%held, length, status)
  end subroutine make_place

  subroutine give_held(one, has_failed)
    type(stream_output), intent(inout) :: one
    logical, intent(inout) :: has_failed
    integer(c_int) :: traces, status

    if (.not. one%is_held) return
    call knl_get_number_of_traces(one%set, traces, status)
    call knl_transfer_trace_to_trace(one%held, one%set, 1, traces + 1, status)
    if (status /= 1) call note_failure(has_failed, 'not enough memory for the header of a trace; ' // &
        'give the job a lower limit of traces in memory')
    call knl_remove_trace(one%held, 1, status)
    one%is_held = .false.
  end subroutine give_held

  ! The trace that is in the place now has been emitted, if there is memory for it.
  subroutine hold(one, has_failed, trace)
    type(stream_output), intent(inout) :: one
    logical, intent(inout) :: has_failed
    type(c_ptr), intent(inout), optional :: trace
    integer(c_int) :: status

    if (.not. has_samples(one%held, 1, has_failed)) then
      call knl_remove_trace(one%held, 1, status)
      return
    end if
    call mark_held(one)
    if (present(trace)) trace = one%held
  end subroutine hold

  subroutine mark_held(one)
    type(stream_output), intent(inout) :: one

    one%is_held = .true.
    call knl_set_data_channel_flag(one%held, 0)
  end subroutine mark_held

  ! ---- The entry points, as vorn_kit calls them ----

  subroutine end_without_traces(state, good)
    class(vorn_stream_module), intent(inout) :: state
    logical, intent(inout) :: good

    associate (unused => state, unused_too => good)
    end associate
  end subroutine end_without_traces

  subroutine begin_stream(state, good)
    class(vorn_stream_module), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: set
    integer(c_int) :: inputs, outputs, status
    integer :: i

    associate (io => state%io)
      inputs = 0
      do
        call knl_get_input_trace_buffer(set, inputs + 1, status)
        if (status /= 0) exit
        inputs = inputs + 1
      end do
      outputs = 0
      do
        call knl_get_output_trace_buffer(set, outputs + 1, status)
        if (status /= 0) exit
        outputs = outputs + 1
      end do
      allocate (io%inputs(inputs), io%outputs(outputs), stat=status)
      good = status == 0 .and. .not. io%has_failed
      if (.not. good) then
        call note_failure(io%has_failed, 'not enough memory for the inputs and outputs')
        return
      end if
      do i = 1, inputs
        call knl_get_input_trace_buffer(io%inputs(i)%set, i, status)
      end do
      do i = 1, outputs
        call knl_get_output_trace_buffer(io%outputs(i)%set, i, status)
        call vorn_build_queue(io, io%outputs(i)%set, io%outputs(i)%held)
      end do
      if (io%keys > 0) call knl_bld_attribute_list(io%words(:io%keys), io%key_list, status)
      if (inputs > 0) call knl_set_module_processing_option('RespectEOD', 1)
    end associate
  end subroutine begin_stream

  ! One row of traces.
  subroutine process_row(state, good)
    class(vorn_stream_module), intent(inout) :: state
    logical, intent(inout) :: good
    logical :: any_trace

    if (state%io%has_ended) then
      ! The scheduler may ask again, and takes what still comes.
      call vorn_keep_empty_inputs()
      call vorn_end_outputs()
      return
    end if
    call find_row(state%io, any_trace, good)
    if (.not. good) return
    if (any_trace) call state%on_trace(good)
    good = good .and. .not. state%io%has_failed
    if (.not. good) return
    if (.not. is_at_end(state%io)) return
    call state%on_end(good)
    good = good .and. .not. state%io%has_failed
    if (good) call end_stream(state)
    good = good .and. .not. state%io%has_failed
  end subroutine process_row

  ! Finds the traces of this call; `any_trace` is false when there is none.
  subroutine find_row(io, any_trace, good)
    type(vorn_io), intent(inout) :: io
    logical, intent(out) :: any_trace
    logical, intent(inout) :: good
    integer(c_int) :: traces, flag, status
    integer :: i

    any_trace = size(io%inputs) == 0 ! a source is called without
    do i = 1, size(io%inputs)
      associate (one => io%inputs(i))
        call knl_get_number_of_traces(one%set, traces, status)
        one%is_in_row = traces > 0
        any_trace = any_trace .or. traces > 0
        one%is_last = .false.
        if (traces == 1) then
          ! What lies behind a marked trace belongs to the data, too.
          call knl_get_data_channel_flag(one%set, flag)
          one%is_last = flag == knl_end_of_data
        else if (traces == 0) then
          one%has_ended = .true.
          ! Or the scheduler makes a trace there, to take it.
          call knl_set_input_trace_buffer_flag(int(i, c_int), knl_keep_trace)
        end if
      end associate
    end do
    if (io%keys > 0 .and. any_trace) call match_row(io, good)
  end subroutine find_row

  ! Leaves in the row what has the smallest key.
  subroutine match_row(io, good)
    type(vorn_io), intent(inout) :: io
    logical, intent(inout) :: good
    integer :: i, least

    least = 0
    do i = 1, size(io%inputs)
      if (.not. io%inputs(i)%is_in_row) cycle
      call read_key(io, i, good)
      if (.not. good) return
      if (least == 0) then
        least = i
      else if (compared(io, io%inputs(i)%key, io%inputs(least)%key) < 0) then
        least = i
      end if
    end do
    do i = 1, size(io%inputs)
      associate (one => io%inputs(i))
        if (.not. one%is_in_row) cycle
        if (compared(io, one%key, io%inputs(least)%key) /= 0) then
          one%is_in_row = .false.
          call knl_set_input_trace_buffer_flag(int(i, c_int), knl_keep_trace)
        else
          one%last = one%key
          one%has_last_key = .true.
          one%has_key = .false.
        end if
      end associate
    end do
  end subroutine match_row

  ! Reads the key of the input's first trace, once.
  subroutine read_key(io, input, good)
    type(vorn_io), intent(inout) :: io
    integer, intent(in) :: input
    logical, intent(inout) :: good
    real(c_double) :: values(vorn_most_keys)
    integer(c_int) :: count

    associate (one => io%inputs(input))
      if (one%has_key) return
      call knl_get_trace_attributes(io%key_list, one%set, values, count)
      if (count < io%keys) then
        good = .false.
        call refuse_words(io, input)
        return
      end if
      one%key = values
      if (one%has_last_key) good = compared(io, one%key, one%last) >= 0
      if (.not. good) call refuse_order(io, input)
      one%has_key = .true.
    end associate
  end subroutine read_key

  subroutine refuse_words(io, input)
    type(vorn_io), intent(in) :: io
    integer, intent(in) :: input
    integer(c_int) :: status
    integer :: i

    do i = 1, io%keys - 1
      call knl_is_trace_attribute_exist(io%inputs(input)%set, trim(io%words(i)), status)
      if (status /= 0) exit
    end do
    call vorn_fail('the traces of input ' // vorn_to_text(int(input, c_int)) // &
        ' have no header word "' // trim(io%words(i)) // &
        '"; match the inputs by words that all of them have')
  end subroutine refuse_words

  subroutine refuse_order(io, input)
    type(vorn_io), intent(in) :: io
    integer, intent(in) :: input
    character(len=:), allocatable :: words
    integer :: i, at

    words = ''
    at = 0
    do i = 1, io%keys
      if (i > 1) words = words // ', '
      if (io%descends(i)) words = words // '-'
      words = words // trim(io%words(i))
      if (at == 0 .and. abs(io%inputs(input)%key(i) - io%inputs(input)%last(i)) > 0) at = i
    end do
    call vorn_fail('input ' // vorn_to_text(int(input, c_int)) // ' is not sorted by ' // words // &
        ': a trace with ' // trim(io%words(at)) // ' = ' // vorn_to_text(io%inputs(input)%key(at)) // &
        ' comes after one with ' // vorn_to_text(io%inputs(input)%last(at)) // &
        '; sort each input by the words that they are matched by')
  end subroutine refuse_order

  ! -1, 0 or 1: whether a key comes before, with or after another.
  integer function compared(io, one, other)
    type(vorn_io), intent(in) :: io
    real(c_double), intent(in) :: one(:), other(:)
    integer :: i

    compared = 0
    do i = 1, io%keys
      if (one(i) < other(i)) compared = -1
      if (one(i) > other(i)) compared = 1
      if (io%descends(i)) compared = -compared
      if (compared /= 0) return
    end do
  end function compared

  logical function is_at_end(io)
    type(vorn_io), intent(inout) :: io

    where (io%inputs%is_in_row .and. io%inputs%is_last) io%inputs%has_ended = .true.
    is_at_end = io%has_stopped .or. (size(io%inputs) > 0 .and. all(io%inputs%has_ended))
  end function is_at_end

  ! Marks the last trace of each output, or the output.
  subroutine end_stream(state)
    class(vorn_stream_module), intent(inout) :: state

    call state%give_up()
    call vorn_end_outputs()
    ! Without an output it would be called for ever.
    if (size(state%io%outputs) == 0) call knl_set_module_processing_option('RespectEOD', 0)
    state%io%has_ended = .true.
  end subroutine end_stream

  subroutine give_all(state)
    class(vorn_stream_module), intent(inout) :: state
    integer :: i

    if (.not. allocated(state%io%outputs)) return
    do i = 1, size(state%io%outputs)
      call give_held(state%io%outputs(i), state%io%has_failed)
    end do
  end subroutine give_all
end module vorn_stream
