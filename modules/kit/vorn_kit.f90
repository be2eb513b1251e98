! What every processing module in Fortran would otherwise repeat: names for the numbers of vorn_knl,
! the module's own state, its failure, entry points that deal with both, and the parameters.
!
!     module agc_job
!       use agc_parameters   ! made from agc.yaml
!       use vorn_kit
!       use vorn_knl
!
!       type, extends(vorn_module) :: agc_state
!         type(parameters) :: set
!         ...
!       contains
!         procedure :: prepare  ! once, before the first trace
!         procedure :: process  ! whenever each input has a trace
!         procedure :: finish   ! after the last trace; may be left out
!         procedure :: save_part, merge_part ! for jobs in parts, see vorn_parts; may be left out
!       end type agc_state
!     ...
!     end module agc_job
!
!     subroutine vorn_new_module(state)
!       use agc_job, only: agc_state
!       use vorn_kit, only: vorn_module
!       class(vorn_module), pointer, intent(out) :: state
!
!       allocate (agc_state :: state)
!     end subroutine vorn_new_module
!
! The entry points are those of vorn_kit_entries.f90, unless the module has its own.
!
! A procedure that sets `good` to false has said why with vorn_fail. The state is then deallocated,
! `finish` is not called, and all outputs are at the end of their data.
!
! The state must not be variables of a Fortran module: a job may use the library for several modules,
! and all of them would share those.
!
! vorn_add_module compiles this file once per project, and makes vorn_module_name for each module.
module vorn_kit
  use, intrinsic :: iso_c_binding, only: c_associated, c_char, c_double, c_f_pointer, c_float, &
      c_int, c_int64_t, c_loc, c_null_char, c_intptr_t, c_null_ptr, c_ptr
  use vorn_knl
  use vorn_parts
  implicit none
  private

  ! Types of messages, the end of data and the flag that keeps a trace are in vorn_knl.

  ! Scopes of metadata.
  integer(c_int), parameter, public :: knl_scope_job = 0, knl_scope_module = 1

  ! Type codes of trace attributes.
  integer(c_int), parameter, public :: vorn_type_text = 1, vorn_type_int32 = 2, &
      vorn_type_int64 = 3, vorn_type_float32 = 4, vorn_type_float64 = 5, vorn_type_text32 = 9, &
      vorn_type_text64 = 10

  ! Types of pads.
  integer(c_int), parameter, public :: vorn_pad_section = 1, vorn_pad_graph = 2, &
      vorn_pad_section_and_graph = 3

  ! Codes of the pen for knl_plot.
  integer(c_int), parameter, public :: vorn_draw = 2, vorn_move = 3

  ! Pens for knl_newpen.
  integer(c_int), parameter, public :: vorn_pen_black = 1, vorn_pen_red = 2, vorn_pen_blue = 3, &
      vorn_pen_green = 4, vorn_pen_orange = 5, vorn_pen_purple = 6, vorn_pen_gray = 7, &
      vorn_pen_brown = 8

  ! Special symbols for knl_symbol.
  integer(c_int), parameter, public :: vorn_symbol_square = 0, vorn_symbol_circle = 1, &
      vorn_symbol_triangle = 2, vorn_symbol_plus = 3, vorn_symbol_cross = 4, &
      vorn_symbol_diamond = 5, vorn_symbol_dot = 6

  !> A text of any length, for arrays whose elements differ in length.
  type, public :: vorn_text
    character(len=:), allocatable :: text
  end type vorn_text

  !> The state of a module, and what it does; to be extended.
  type, abstract, public :: vorn_module
  contains
    procedure(vorn_step), deferred :: prepare
    procedure(vorn_step), deferred :: process
    procedure :: finish => finish_nothing
    !> For jobs that run in parts; needed where the manifest says `merge: true`.
    procedure :: save_part => has_no_save
    procedure :: merge_part => has_no_merge
    !> For other forms of a module: what follows `prepare`, and what precedes the release of a state
    !> whose procedure has failed.
    procedure :: begin => ask_for_end
    procedure :: give_up => finish_nothing
  end type vorn_module

  abstract interface
    !> `good` is true at the call; false after vorn_fail.
    subroutine vorn_step(state, good)
      import :: vorn_module
      class(vorn_module), intent(inout) :: state
      logical, intent(inout) :: good
    end subroutine vorn_step
  end interface

  ! What the address that the kernel keeps points to.
  type :: kept_module
    class(vorn_module), pointer :: state => null()
    logical :: passes_end = .false. ! the kit has asked for calls at the end of the inputs
  end type kept_module

  public :: vorn_preprocess, vorn_process, vorn_postprocess, vorn_save, vorn_merge
  public :: vorn_state_file, vorn_put, vorn_get, vorn_is_part, vorn_part_first, &
      vorn_message_once
  public :: vorn_fail, vorn_fail_without_interval, vorn_fail_without_samples, vorn_job_has_failed
  public :: vorn_allow_memory
  public :: vorn_add_history, vorn_to_text
  public :: vorn_required_input, vorn_build_required_output, vorn_pass_trace
  public :: vorn_keep_empty_inputs, vorn_end_outputs

  !> A number as text: whole numbers with all digits, others with as many as they need, at most nine.
  interface vorn_to_text
    module procedure double_to_text, int_to_text, int64_to_text
  end interface vorn_to_text

  ! ---- Parameters: called by the code that is made from manifests ----

  !> What the manifest states about a parameter; vorn_describe makes it.
  type, public :: vorn_parameter
    private
    character(len=:), allocatable :: name, unit, expected
    logical :: is_required = .false.
    real(c_double) :: least = -huge(1.0_c_double), greatest = huge(1.0_c_double)
    logical :: excludes_least = .false., excludes_greatest = .false.
    integer :: least_count = 0, greatest_count = huge(1)
  end type vorn_parameter

  public :: vorn_describe, vorn_read, vorn_read_choice

  !> Reads a parameter and checks it.
  !>
  !>     call vorn_read(p, value, found, good)
  !>
  !> `value` is a double precision, an integer, a 64-bit integer, a logical, an allocatable text, or
  !> an allocatable array of one of these but logicals, texts as vorn_text. `found`: whether the job
  !> has the parameter; `value` is untouched where not. `good` is false after a fatal message.
  interface vorn_read
    module procedure read_double, read_int, read_int64, read_logical, read_text
    module procedure read_doubles, read_ints, read_int64s, read_texts
  end interface vorn_read

  interface
    !> The name of the module library, under which its failure is recorded.
    subroutine vorn_module_name(name)
      character(len=:), allocatable, intent(out) :: name
    end subroutine vorn_module_name

    ! C forms, where the Fortran form has a bound or cannot tell what is stored.
    integer(c_int) function c_get_text(name, text, room) &
        bind(C, name='knl_getStrModuleParameterN')
      import :: c_char, c_int
      character(kind=c_char), intent(in) :: name(*)
      character(kind=c_char), intent(inout) :: text(*)
      integer(c_int), value :: room
    end function c_get_text
    integer(c_int) function c_get_doubles(name, elements, count) &
        bind(C, name='knl_getF64ArrayModuleParameter')
      import :: c_char, c_int, c_ptr
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(inout) :: elements
      integer(c_int), intent(inout) :: count
    end function c_get_doubles
    integer(c_int) function c_get_floats(name, elements, count) &
        bind(C, name='knl_getF32ArrayModuleParameter')
      import :: c_char, c_int, c_ptr
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(inout) :: elements
      integer(c_int), intent(inout) :: count
    end function c_get_floats
    integer(c_int) function c_get_int64s(name, elements, count) &
        bind(C, name='knl_getI64ArrayModuleParameter')
      import :: c_char, c_int, c_ptr
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(inout) :: elements
      integer(c_int), intent(inout) :: count
    end function c_get_int64s
    integer(c_int) function c_get_ints(name, elements, count) &
        bind(C, name='knl_getI32ArrayModuleParameter')
      import :: c_char, c_int, c_ptr
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(inout) :: elements
      integer(c_int), intent(inout) :: count
    end function c_get_ints
  end interface

contains

  ! ---- Entry points ----

  !> Takes the state over and prepares it.
  integer function vorn_preprocess(state)
    class(vorn_module), pointer, intent(in) :: state
    type(kept_module), pointer :: kept
    class(vorn_module), pointer :: unkept
    integer :: status
    logical :: good

    vorn_preprocess = 0
    good = .false.
    allocate (kept, stat=status)
    if (status == 0) then
      kept%state => state
      call keep_address(c_loc(kept), good)
      if (.not. good) deallocate (kept)
    end if
    if (.not. good) then
      unkept => state
      deallocate (unkept)
      call vorn_fail('the state of the module cannot be kept')
      return
    end if
    call state%prepare(good)
    if (good) call state%begin(good)
    if (.not. good) call release()
  end function vorn_preprocess

  integer function vorn_process()
    type(kept_module), pointer :: kept
    logical :: good

    vorn_process = 0
    kept => find_kept()
    good = associated(kept)
    if (good) then
      if (kept%passes_end) then
        if (has_passed_end()) return
      end if
      call kept%state%process(good)
      if (.not. good) call kept%state%give_up()
    end if
    if (good) return
    ! Do not ask again, not even when the inputs have ended.
    call release()
    call knl_set_module_processing_option('RespectEOD', 0)
    call vorn_keep_empty_inputs()
    call vorn_end_outputs()
  end function vorn_process

  integer function vorn_postprocess()
    type(kept_module), pointer :: kept

    vorn_postprocess = 0
    kept => find_kept()
    if (associated(kept)) call kept%state%finish()
    call release()
  end function vorn_postprocess

  !> Saves the state of a part to the file `path`, and releases it; 0 where that has succeeded.
  integer function vorn_save(path)
    character(len=*), intent(in) :: path
    type(kept_module), pointer :: kept
    type(vorn_state_file) :: file
    character(len=:), allocatable :: name
    logical :: good

    vorn_save = 1
    kept => find_kept()
    if (.not. associated(kept)) return ! the module has failed, and has said why
    call vorn_begin_state(file)
    good = .true.
    call kept%state%save_part(file, good)
    if (good) then
      call vorn_module_name(name)
      call vorn_write_state(file, path, name, good)
      if (.not. good) call vorn_fail('the state of this part cannot be written to ' // path // ': ' // &
          vorn_state_problem(file) // '; look at the space and the rights there, and run the part ' &
          // 'again')
    end if
    call release()
    if (good) vorn_save = 0
  end function vorn_save

  !> Adds the state of a part, which the file `path` has, to that of the module; 0 where that has
  !> succeeded.
  integer function vorn_merge(path)
    character(len=*), intent(in) :: path
    type(kept_module), pointer :: kept
    type(vorn_state_file) :: file
    character(len=:), allocatable :: name
    logical :: good

    vorn_merge = 1
    kept => find_kept()
    if (.not. associated(kept)) return
    call vorn_module_name(name)
    call vorn_read_state(file, path, name, good)
    if (good) call kept%state%merge_part(file, good)
    if (good) call vorn_end_state(file, good)
    if (good) then
      vorn_merge = 0
      return
    end if
    ! Otherwise, the module has said why.
    if (vorn_state_problem(file) /= '') call vorn_fail(path // &
        ' is not a state that can be merged: ' // vorn_state_problem(file) // &
        '; run the part again that has written it')
    call release()
  end function vorn_merge

  subroutine has_no_save(state, file, good)
    class(vorn_module), intent(inout) :: state
    type(vorn_state_file), intent(inout) :: file
    logical, intent(inout) :: good

    associate (unused => state, unused_too => file)
    end associate
    call vorn_fail('the module has nothing that saves its state; leave merge out of its manifest')
    good = .false.
  end subroutine has_no_save

  subroutine has_no_merge(state, file, good)
    class(vorn_module), intent(inout) :: state
    type(vorn_state_file), intent(inout) :: file
    logical, intent(inout) :: good

    associate (unused => state, unused_too => file)
    end associate
    call vorn_fail('the module has nothing that merges states; leave merge out of its manifest')
    good = .false.
  end subroutine has_no_merge

  ! ---- The running part ----

  !> Whether this process runs a part of a job.
  logical function vorn_is_part()
    character(len=:), allocatable :: text

    call read_part(text)
    vorn_is_part = text /= ''
  end function vorn_is_part

  !> How many traces the sources of the job emit before those of this part; 0 in a run of one process. A
  !> module that tells the number of a trace adds it to its own count.
  integer(c_int64_t) function vorn_part_first()
    character(len=:), allocatable :: text
    integer(c_int64_t) :: number, count
    integer :: status

    vorn_part_first = 0
    call read_part(text)
    if (text == '') return
    read (text, *, iostat=status) number, count, vorn_part_first
    if (status /= 0) vorn_part_first = 0
  end function vorn_part_first

  !> Sends a message of which the job shows the first that any of its parts sends under this `key`, a word
  !> of the module's own. The module still sends it once in its own run.
  subroutine vorn_message_once(type, key, text)
    integer(c_int), intent(in) :: type
    character(len=*), intent(in) :: key, text
    character(len=:), allocatable :: part

    call knl_send_message(type, text)
    call read_part(part)
    if (part /= '') call knl_add_message_argument('vorn.once ' // key)
  end subroutine vorn_message_once

  !> "K N FIRST TOTAL", or an empty text.
  subroutine read_part(text)
    character(len=:), allocatable, intent(out) :: text
    character(len=100) :: value
    integer(c_int) :: length

    value = ''
    call knl_get_metadata_value(knl_scope_job, 'vorn.part', value, length)
    text = ''
    if (length > 0) text = trim(value)
  end subroutine read_part

  subroutine finish_nothing(state)
    class(vorn_module), intent(inout) :: state

    associate (unused => state)
    end associate
  end subroutine finish_nothing

  ! A module that did not ask for calls at the end of its inputs gives one trace for each. The kit asks
  ! in its place, to pass the end on where no marked trace does that: of an input without traces.
  subroutine ask_for_end(state, good)
    class(vorn_module), intent(inout) :: state
    logical, intent(inout) :: good
    type(kept_module), pointer :: kept
    type(c_ptr) :: set
    integer(c_int) :: asked, no_input, no_output
    logical :: found

    associate (unused => state, unused_too => good)
    end associate
    call knl_get_input_trace_buffer(set, 1, no_input)
    call knl_get_output_trace_buffer(set, 1, no_output)
    asked = 0
    call knl_get_module_processing_option('RespectEOD', asked, found)
    if (no_input /= 0 .or. no_output /= 0 .or. asked /= 0) return
    kept => find_kept()
    kept%passes_end = .true.
    call knl_set_module_processing_option('RespectEOD', 1)
  end subroutine ask_for_end

  ! Whether this call is one at the end of the inputs; it is then done.
  logical function has_passed_end()
    type(c_ptr) :: input
    integer(c_int) :: channel, traces, status

    has_passed_end = .false.
    channel = 1
    do
      call knl_get_input_trace_buffer(input, channel, status)
      if (status /= 0) return
      call knl_get_number_of_traces(input, traces, status)
      if (traces == 0) exit
      channel = channel + 1
    end do
    has_passed_end = .true.
    call vorn_keep_empty_inputs()
    call vorn_end_outputs()
  end function has_passed_end

  subroutine release()
    type(kept_module), pointer :: kept
    logical :: good

    call knl_remove_work_traces()
    kept => find_kept()
    if (.not. associated(kept)) return
    deallocate (kept%state)
    deallocate (kept)
    call keep_address(c_null_ptr, good) ! the name exists
  end subroutine release

  !> Null before preprocess and after a failure.
  function find_kept() result(kept)
    type(kept_module), pointer :: kept
    type(c_ptr), target :: address
    logical :: found

    nullify (kept)
    address = c_null_ptr
    call knl_get_module_struct_resource('state', c_loc(address), found)
    if (c_associated(address)) call c_f_pointer(address, kept)
  end function find_kept

  subroutine keep_address(address, good)
    type(c_ptr), intent(in), target :: address
    logical, intent(out) :: good
    integer(c_int), parameter :: bytes = bit_size(0_c_intptr_t) / 8
    integer(c_int) :: status

    call knl_set_module_struct_resource('state', c_loc(address), bytes, status)
    good = status == 1
  end subroutine keep_address

  ! ---- Messages ----

  !> Ends the module: a fatal message, and the same text, after the module's name, in the job's
  !> metadata, where the `vorn` command and the modules that write files look: no output of a failed
  !> job becomes a file. The caller sets `good` to false and returns.
  subroutine vorn_fail(text)
    character(len=*), intent(in) :: text
    character(len=:), allocatable :: name

    call vorn_module_name(name)
    call knl_send_message(knl_message_fatal, text)
    call knl_set_metadata_value(knl_scope_job, 'vorn.failed', name // ': ' // text)
  end subroutine vorn_fail

  !> `good` is false, after a fatal message, when `bytes` of memory exceed `limit` megabytes, the value
  !> of the module's parameter memory_limit. The message says what they are for ('the sums of traces of
  !> 3000 samples') and what else could be done ('shorten the traces').
  !>
  !> A module asks before it takes memory whose size depends on what files and parameters state. Such
  !> sizes are computed in 64 bits.
  subroutine vorn_allow_memory(limit, bytes, what, advice, good)
    integer(c_int), intent(in) :: limit
    integer(c_int64_t), intent(in) :: bytes
    character(len=*), intent(in) :: what, advice
    logical, intent(inout) :: good
    integer(c_int64_t), parameter :: megabyte = 1000000

    if (bytes <= limit * megabyte) return
    good = .false.
    call vorn_fail(what // ' would need ' // vorn_to_text((bytes - 1) / megabyte + 1) // &
        ' MB of memory, and memory_limit is ' // vorn_to_text(limit) // &
        ' MB; raise memory_limit, or ' // advice)
  end subroutine vorn_allow_memory

  !> Ends the module where there was no memory for a trace; `good` is false.
  subroutine vorn_fail_without_samples(traces, good)
    type(c_ptr), intent(in) :: traces
    logical, intent(out) :: good
    integer(c_int) :: length, status

    good = .false.
    call knl_get_trace_length(traces, length, status)
    call vorn_fail('not enough memory for a trace of ' // vorn_to_text(length) // &
        ' samples; give the job a lower limit of traces in memory, or shorter traces')
  end subroutine vorn_fail_without_samples

  !> Says that the input has no sample interval, unless a module has failed before: then the
  !> interval may be missing for that reason.
  subroutine vorn_fail_without_interval()
    if (.not. vorn_job_has_failed()) call vorn_fail( &
        'the input has no sample interval; the module before this one has to set it')
  end subroutine vorn_fail_without_interval

  !> Whether a module has failed. Those that follow it may lack what it should have told them, and
  !> have nothing to complain about.
  logical function vorn_job_has_failed()
    character(len=1) :: cause
    integer(c_int) :: length

    call knl_get_metadata_value(knl_scope_job, 'vorn.failed', cause, length)
    vorn_job_has_failed = length > 0
  end function vorn_job_has_failed

  !> Adds a line to the history of the data, which writers of files put into their text headers.
  subroutine vorn_add_history(line)
    character(len=*), intent(in) :: line

    call knl_set_metadata_value(knl_scope_module, 'history$', line)
  end subroutine vorn_add_history

  pure function double_to_text(value) result(text)
    real(c_double), intent(in) :: value
    character(len=:), allocatable :: text
    integer, parameter :: significant = 9
    character(len=40) :: digits, form
    logical :: is_short
    integer :: decimals

    is_short = abs(value) >= 1.0e-4_c_double .and. abs(value) < 1.0e9_c_double
    if (abs(value) > 0 .and. .not. is_short) then
      text = short_exponent(value)
      return
    end if
    decimals = significant
    if (abs(value) > 0) decimals = significant - 1 - floor(log10(abs(value)))
    write (form, '("(f40.", i0, ")")') max(1, decimals)
    write (digits, form) value
    text = trim(adjustl(digits))
    text = text(:verify(text, '0', back=.true.))
    if (text(len(text):) == '.') text = text(:len(text) - 1)
  end function double_to_text

  !> "1.225E-09".
  pure function short_exponent(value) result(text)
    real(c_double), intent(in) :: value
    character(len=:), allocatable :: text
    character(len=24) :: digits
    integer :: exponent

    write (digits, '(es18.8e3)') value
    digits = adjustl(digits)
    exponent = index(digits, 'E')
    if (exponent == 0) then ! not finite
      text = trim(digits)
      return
    end if
    text = digits(:exponent - 1)
    text = text(:verify(text, '0', back=.true.))
    if (text(len(text):) == '.') text = text(:len(text) - 1)
    ! Two digits of the exponent are enough for most.
    if (digits(exponent + 2:exponent + 2) == '0') then
      text = text // digits(exponent:exponent + 1) // trim(digits(exponent + 3:))
    else
      text = text // trim(digits(exponent:))
    end if
  end function short_exponent

  pure function int_to_text(value) result(text)
    integer(c_int), intent(in) :: value
    character(len=:), allocatable :: text

    text = int64_to_text(int(value, c_int64_t))
  end function int_to_text

  pure function int64_to_text(value) result(text)
    integer(c_int64_t), intent(in) :: value
    character(len=:), allocatable :: text
    character(len=24) :: digits

    write (digits, '(i0)') value
    text = trim(digits)
  end function int64_to_text

  ! ---- Inputs and outputs ----

  !> The first input, or input number `channel`; `good` is false after a fatal message when there is
  !> none.
  subroutine vorn_required_input(input, good, channel)
    type(c_ptr), intent(out) :: input
    logical, intent(inout) :: good
    integer(c_int), intent(in), optional :: channel
    integer(c_int) :: number, status

    number = 1
    if (present(channel)) number = channel
    call knl_get_input_trace_buffer(input, number, status)
    if (status == 0) return
    good = .false.
    if (number == 1) then
      call vorn_fail('the module has no input; connect one')
    else
      call vorn_fail('the module has no input ' // vorn_to_text(number) // '; connect one')
    end if
  end subroutine vorn_required_input

  !> Gives the first output the trace length, the sample interval and the attributes of `like`;
  !> `good` is false after a fatal message when there is no output.
  subroutine vorn_build_required_output(like, good)
    type(c_ptr), intent(in) :: like
    logical, intent(inout) :: good
    integer(c_int) :: length, interval, status

    call knl_get_trace_length(like, length, status)
    call knl_get_trace_sample_interval(like, interval, status)
    call knl_bld_output_trace_buffer(1, length, interval, like, status)
    if (status == 0) return
    good = .false.
    call vorn_fail('the module has no output; connect one')
  end subroutine vorn_build_required_output

  !> Copies the first trace of `input` behind the last one of `output`: header, samples, and the flag
  !> that says whether it is the last trace. `number` is its number in `output`, from 1.
  subroutine vorn_pass_trace(input, output, number)
    type(c_ptr), intent(in) :: input, output
    integer(c_int), intent(out) :: number
    integer(c_int) :: status

    call knl_get_number_of_traces(output, number, status)
    number = number + 1
    call knl_copy_trace_to_trace(input, output, .true., .true., status, 1, number)
  end subroutine vorn_pass_trace

  !> For modules that are called after the end of their inputs (processing option 'RespectEOD'):
  !> keeps the scheduler from taking a trace from an empty input, which would make one there for
  !> other modules to find.
  subroutine vorn_keep_empty_inputs()
    type(c_ptr) :: input
    integer(c_int) :: channel, traces, status

    channel = 1
    do
      call knl_get_input_trace_buffer(input, channel, status)
      if (status /= 0) return
      call knl_get_number_of_traces(input, traces, status)
      if (traces == 0) call knl_set_input_trace_buffer_flag(channel, knl_keep_trace)
      channel = channel + 1
    end do
  end subroutine vorn_keep_empty_inputs

  !> Ends the data of all outputs, so that the module is not called again.
  subroutine vorn_end_outputs()
    type(c_ptr) :: output
    integer(c_int) :: channel, status

    channel = 1
    do
      call knl_get_output_trace_buffer(output, channel, status)
      if (status /= 0) return
      call knl_set_data_channel_flag(output, knl_end_of_data)
      channel = channel + 1
    end do
  end subroutine vorn_end_outputs

  ! ---- Parameters ----

  !> `unit` has a blank before it, or is empty; `expected` is for messages: 'a number above 0'.
  function vorn_describe(name, unit, expected, is_required, least, greatest, excludes_least, &
      excludes_greatest, least_count, greatest_count) result(p)
    character(len=*), intent(in) :: name, unit, expected
    logical, intent(in), optional :: is_required, excludes_least, excludes_greatest
    real(c_double), intent(in), optional :: least, greatest
    integer, intent(in), optional :: least_count, greatest_count
    type(vorn_parameter) :: p

    p%name = name
    p%unit = unit
    p%expected = expected
    if (present(is_required)) p%is_required = is_required
    if (present(least)) p%least = least
    if (present(greatest)) p%greatest = greatest
    if (present(excludes_least)) p%excludes_least = excludes_least
    if (present(excludes_greatest)) p%excludes_greatest = excludes_greatest
    if (present(least_count)) p%least_count = least_count
    if (present(greatest_count)) p%greatest_count = greatest_count
  end function vorn_describe

  pure logical function is_within(p, value)
    type(vorn_parameter), intent(in) :: p
    real(c_double), intent(in) :: value

    is_within = abs(value) <= huge(value) .and. value >= p%least .and. value <= p%greatest
    if (p%excludes_least) is_within = is_within .and. value > p%least
    if (p%excludes_greatest) is_within = is_within .and. value < p%greatest
  end function is_within

  ! Each refusal is a fatal message with the same end.
  subroutine refuse(p, problem, good)
    type(vorn_parameter), intent(in) :: p
    character(len=*), intent(in) :: problem
    logical, intent(inout) :: good

    good = .false.
    call vorn_fail(p%name // ' ' // problem // '; give ' // p%expected)
  end subroutine refuse

  subroutine check_absent(p, found, good)
    type(vorn_parameter), intent(in) :: p
    logical, intent(in) :: found
    logical, intent(inout) :: good

    if (p%is_required .and. .not. found) call refuse(p, 'is missing', good)
  end subroutine check_absent

  subroutine check_count(p, count, good)
    type(vorn_parameter), intent(in) :: p
    integer(c_int), intent(in) :: count
    logical, intent(inout) :: good

    if (count >= p%least_count .and. count <= p%greatest_count) return
    if (count == 0 .and. p%is_required) then
      call refuse(p, 'is missing', good)
    else
      call refuse(p, 'has ' // vorn_to_text(count) // trim(merge(' element ', ' elements', &
          count == 1)), good)
    end if
  end subroutine check_count

  subroutine read_double(p, value, found, good)
    type(vorn_parameter), intent(in) :: p
    real(c_double), intent(inout) :: value
    logical, intent(out) :: found
    logical, intent(inout) :: good

    call knl_get_module_parameter(p%name, value, found)
    call check_absent(p, found, good)
    if (.not. found) return
    if (.not. is_within(p, value)) call refuse(p, 'is ' // vorn_to_text(value) // p%unit, good)
  end subroutine read_double

  subroutine read_int64(p, value, found, good)
    type(vorn_parameter), intent(in) :: p
    integer(c_int64_t), intent(inout) :: value
    logical, intent(out) :: found
    logical, intent(inout) :: good

    call knl_get_module_parameter(p%name, value, found)
    call check_absent(p, found, good)
    if (.not. found) return
    if (.not. is_within(p, real(value, c_double))) &
        call refuse(p, 'is ' // vorn_to_text(value) // p%unit, good)
  end subroutine read_int64

  subroutine read_int(p, value, found, good)
    type(vorn_parameter), intent(in) :: p
    integer(c_int), intent(inout) :: value
    logical, intent(out) :: found
    logical, intent(inout) :: good
    integer(c_int64_t) :: wide

    wide = value
    call read_int64(p, wide, found, good)
    if (good) call check_width(p, wide, good)
    if (good) value = int(wide, c_int)
  end subroutine read_int

  !> Refuses a value that the bounds allow and 32 bits do not hold. The message has the bounds where
  !> they are narrower than 32 bits.
  subroutine check_width(p, value, good)
    type(vorn_parameter), intent(in) :: p
    integer(c_int64_t), intent(in) :: value
    logical, intent(inout) :: good
    integer(c_int64_t), parameter :: highest = huge(1_c_int), lowest = -highest - 1
    integer(c_int64_t) :: least, greatest

    if (value >= lowest .and. value <= highest) return
    good = .false.
    least = lowest
    greatest = highest
    if (p%least >= lowest) then
      least = ceiling(p%least, c_int64_t)
      if (.not. is_within(p, real(least, c_double))) least = least + 1
    end if
    if (p%greatest <= highest) then
      greatest = floor(p%greatest, c_int64_t)
      if (.not. is_within(p, real(greatest, c_double))) greatest = greatest - 1
    end if
    call vorn_fail(p%name // ' is ' // vorn_to_text(value) // p%unit // '; give a number from ' // &
        vorn_to_text(least) // ' to ' // vorn_to_text(greatest))
  end subroutine check_width

  subroutine read_logical(p, value, found, good)
    type(vorn_parameter), intent(in) :: p
    logical, intent(inout) :: value
    logical, intent(out) :: found
    logical, intent(inout) :: good
    integer(c_int64_t) :: number

    number = 0
    call knl_get_module_parameter(p%name, number, found)
    call check_absent(p, found, good)
    if (.not. found) return
    if (number /= 0 .and. number /= 1) call refuse(p, 'is ' // vorn_to_text(number), good)
    value = number /= 0
  end subroutine read_logical

  !> An empty text counts as missing where the parameter is required.
  subroutine read_text(p, value, found, good)
    type(vorn_parameter), intent(in) :: p
    character(len=:), allocatable, intent(inout) :: value
    logical, intent(out) :: found
    logical, intent(inout) :: good
    character(len=:), allocatable :: text

    call get_text(p%name, text, found)
    if (found .and. p%is_required) found = len(text) > 0
    call check_absent(p, found, good)
    if (found) call move_alloc(text, value)
  end subroutine read_text

  subroutine get_text(name, text, found)
    character(len=*), intent(in) :: name
    character(len=:), allocatable, intent(out) :: text
    logical, intent(out) :: found
    character(kind=c_char), allocatable :: characters(:)
    integer(c_int) :: length
    integer :: i

    allocate (characters(1))
    length = c_get_text(name // c_null_char, characters, 0_c_int)
    found = length >= 0
    if (.not. found) return
    deallocate (characters)
    allocate (characters(length + 1))
    length = c_get_text(name // c_null_char, characters, length + 1_c_int)
    allocate (character(len=length) :: text)
    do i = 1, length
      text(i:i) = characters(i)
    end do
  end subroutine get_text

  !> `value` is the number of the word in `words`, from 0. Blanks behind a word do not count.
  subroutine vorn_read_choice(p, words, value, found, good)
    type(vorn_parameter), intent(in) :: p
    character(len=*), intent(in) :: words(:)
    integer(c_int), intent(inout) :: value
    logical, intent(out) :: found
    logical, intent(inout) :: good
    character(len=:), allocatable :: text
    integer :: i

    call get_text(p%name, text, found)
    call check_absent(p, found, good)
    if (.not. found) return
    do i = 1, size(words)
      if (words(i) /= text) cycle
      value = i - 1
      return
    end do
    call refuse(p, 'is "' // text(:min(40, len(text))) // '"', good)
  end subroutine vorn_read_choice

  !> The elements as doubles, whatever kind of numbers they are.
  subroutine get_numbers(p, numbers, found, good)
    type(vorn_parameter), intent(in) :: p
    real(c_double), allocatable, intent(out) :: numbers(:)
    logical, intent(out) :: found
    logical, intent(inout) :: good
    real(c_double), pointer :: f64(:)
    real(c_float), pointer :: f32(:)
    integer(c_int64_t), pointer :: i64(:)
    integer(c_int), pointer :: i32(:)
    type(c_ptr) :: elements
    integer(c_int) :: count

    count = 0
    elements = c_null_ptr
    allocate (numbers(0))
    found = c_get_doubles(p%name // c_null_char, elements, count) == 1
    if (.not. found) return
    if (c_associated(elements)) then
      call c_f_pointer(elements, f64, [count])
      numbers = f64
      return
    end if
    if (c_get_floats(p%name // c_null_char, elements, count) == 1 .and. c_associated(elements)) then
      call c_f_pointer(elements, f32, [count])
      numbers = real(f32, c_double)
      return
    end if
    if (c_get_int64s(p%name // c_null_char, elements, count) == 1 .and. c_associated(elements)) then
      call c_f_pointer(elements, i64, [count])
      numbers = real(i64, c_double)
      return
    end if
    if (c_get_ints(p%name // c_null_char, elements, count) == 1 .and. c_associated(elements)) then
      call c_f_pointer(elements, i32, [count])
      numbers = real(i32, c_double)
      return
    end if
    if (count > 0) call refuse(p, 'is not a list of numbers', good)
  end subroutine get_numbers

  subroutine read_doubles(p, value, found, good)
    type(vorn_parameter), intent(in) :: p
    real(c_double), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    logical, intent(inout) :: good
    real(c_double), allocatable :: numbers(:)
    integer :: i

    call get_numbers(p, numbers, found, good)
    if (good) call check_absent(p, found, good)
    if (.not. (found .and. good)) return
    call check_count(p, size(numbers, kind=c_int), good)
    do i = 1, size(numbers)
      if (good .and. .not. is_within(p, numbers(i))) &
          call refuse(p, 'holds ' // vorn_to_text(numbers(i)) // p%unit, good)
    end do
    if (good) call move_alloc(numbers, value)
  end subroutine read_doubles

  !> Numbers of other kinds are refused where they are not whole.
  subroutine read_int64s(p, value, found, good)
    type(vorn_parameter), intent(in) :: p
    integer(c_int64_t), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    logical, intent(inout) :: good
    real(c_double), allocatable :: numbers(:)
    integer(c_int64_t), pointer :: wide(:)
    type(c_ptr) :: elements
    integer(c_int) :: count
    integer :: i
    logical :: is_wide, fits
    real(c_double), parameter :: limit = 2.0_c_double**63

    call get_numbers(p, numbers, found, good)
    if (good) call check_absent(p, found, good)
    if (.not. (found .and. good)) return
    call check_count(p, size(numbers, kind=c_int), good)
    elements = c_null_ptr
    is_wide = c_get_int64s(p%name // c_null_char, elements, count) == 1
    is_wide = is_wide .and. c_associated(elements)
    do i = 1, size(numbers)
      if (.not. good) exit
      ! The range of 64 bits ends before `limit`, to which the greatest of its numbers is rounded.
      fits = is_wide .or. (numbers(i) >= -limit .and. numbers(i) < limit)
      fits = fits .and. .not. abs(numbers(i) - anint(numbers(i))) > 0
      if (.not. (fits .and. is_within(p, numbers(i)))) &
          call refuse(p, 'holds ' // vorn_to_text(numbers(i)) // p%unit, good)
    end do
    if (.not. good) return
    ! 64-bit elements do not take the way over doubles, which have 53 bits.
    if (is_wide) then
      call c_f_pointer(elements, wide, [count])
      value = wide
    else
      value = int(numbers, c_int64_t)
    end if
  end subroutine read_int64s

  subroutine read_ints(p, value, found, good)
    type(vorn_parameter), intent(in) :: p
    integer(c_int), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    logical, intent(inout) :: good
    integer(c_int64_t), allocatable :: wide(:)
    integer :: i

    allocate (wide(0))
    call read_int64s(p, wide, found, good)
    if (.not. found) return
    do i = 1, size(wide)
      if (good) call check_width(p, wide(i), good)
    end do
    if (good) value = int(wide, c_int)
  end subroutine read_ints

  !> The lines of the parameter's text; an empty text is a list without elements.
  subroutine read_texts(p, value, found, good, words)
    type(vorn_parameter), intent(in) :: p
    type(vorn_text), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    logical, intent(inout) :: good
    character(len=*), intent(in), optional :: words(:) ! that elements may be
    type(vorn_text), allocatable :: texts(:)
    character(len=:), allocatable :: text
    integer :: i, first, last

    call get_text(p%name, text, found)
    call check_absent(p, found, good)
    if (.not. found) return
    allocate (texts(merge(0, 1, len(text) == 0) + count([(text(i:i) == achar(10), i=1, len(text))])))
    first = 1
    do i = 1, size(texts)
      last = first + scan(text(first:), achar(10)) - 2
      if (last < first - 1) last = len(text)
      texts(i)%text = text(first:last)
      first = last + 2
    end do
    call check_count(p, size(texts, kind=c_int), good)
    do i = 1, size(texts)
      if (.not. (good .and. present(words))) exit
      if (all(words /= texts(i)%text)) &
          call refuse(p, 'holds "' // texts(i)%text(:min(40, len(texts(i)%text))) // '"', good)
    end do
    if (good) call move_alloc(texts, value)
  end subroutine read_texts
end module vorn_kit
