! The Fortran form, second part: trace attributes and their schema, trace buffers and trace sets,
! called by their exported names without explicit interfaces (but for one, whose name is none of
! Fortran's). The job's schema is in ModuleInterfaceJobTest.cpp; its source emits three traces of
! four samples.
include 'checks.inc'

module trace_checks
  use, intrinsic :: iso_c_binding, only: c_associated, c_double, c_f_pointer, c_float, c_int, &
      c_int64_t, c_loc, c_null_char, c_null_ptr, c_ptr
  use checks
  implicit none
  private
  public :: query_schema, write_attributes, read_attributes, use_lists, find_buffers, build_buffers
  public :: change_geometry, use_samples, copy_traces, flag_traces, flag_channel, pass_trace_on

  integer(c_int64_t), parameter :: big = 1099511627776_c_int64_t ! 2 to the power of 40

  ! The kernel's record for an array, and behind it what it must not touch.
  type, bind(C) :: guarded_descriptor
    type(c_ptr) :: data
    integer(c_int64_t) :: dsize, offset, bordr, rank, rserv, extent, distance, lbound
    integer(c_int64_t) :: guard
  end type guarded_descriptor

  interface
    subroutine is_trace_buffer_use_scratch(set, use) bind(C, name="knl_istracebufferusescratch")
      import :: c_int, c_ptr
      type(c_ptr), intent(in) :: set
      integer(c_int), intent(out) :: use
    end subroutine is_trace_buffer_use_scratch
  end interface

contains

  subroutine query_schema()
    integer(c_int) :: number
    character(len=8) :: text

    call knl_gettraceattributetype('f64s  ', number)
    call check_int(5, number, 'type of f64s')
    call knl_gettraceattributedimension('f64s', number)
    call check_int(2, number, 'dimension of f64s')
    call knl_gettraceattributetype('unknown', number)
    call check_int(-1, number, 'type of an unknown attribute')
    number = -7
    call knl_gettraceattributedimension('unknown', number)
    call check_int(-1, number, 'dimension of an unknown attribute')
    text = 'before'
    call knl_gettraceattributedescription('i32', text)
    call check_text('before', text, 'a description, which is never handed out')
  end subroutine query_schema

  ! Of the first trace by the functions for one trace, of the second one by the others.
  subroutine write_attributes(set)
    type(c_ptr), intent(in) :: set
    integer(c_int) :: status
    integer(c_int), target :: i32s(4)
    integer(c_int64_t), target :: i64s(4)
    real(c_float), target :: f32s(4)
    real(c_double), target :: f64s(4)

    call knl_definetraceattribute(set, 'i32', status)
    call check_int(1, status, 'status of defining')
    call knl_istraceattributeexist(set, 'i32', status)
    call check_int(0, status, 'status of an attribute that exists')
    call knl_istraceattributeexist(set, 'i64', status)
    call check_int(1, status, 'status of an attribute that does not exist')

    i32s = [1, -2, 3, 9]
    i64s = [big, -1_c_int64_t, 9_c_int64_t, 9_c_int64_t]
    f32s = [0.5, 1.5, 2.5, 3.5]
    f64s = [0.1_c_double, 0.2_c_double, 9.0_c_double, 9.0_c_double]

    call knl_seti32traceattribute(set, 'i32', 42, status)
    call check_int(1, status, 'status of setting i32')
    call knl_seti64traceattribute(set, 'i64', big, status)
    call check_int(1, status, 'status of setting i64')
    call knl_setf32traceattribute(set, 'f32', 1.5, status)
    call check_int(1, status, 'status of setting f32')
    call knl_setf64traceattribute(set, 'f64', 0.1_c_double, status)
    call check_int(1, status, 'status of setting f64')
    call knl_setstringtraceattribute(set, 'text', 'some text' // c_null_char, status)
    call check_int(1, status, 'status of setting text')
    call knl_seti32arraytraceattribute(set, 'i32s', c_loc(i32s), 3, status)
    call check_int(1, status, 'status of setting i32s')
    call knl_seti64arraytraceattribute(set, 'i64s', c_loc(i64s), 2, status)
    call check_int(1, status, 'status of setting i64s')
    call knl_setf32arraytraceattribute(set, 'f32s', c_loc(f32s), 4, status)
    call check_int(1, status, 'status of setting f32s')
    call knl_setf64arraytraceattribute(set, 'f64s', c_loc(f64s), 2, status)
    call check_int(1, status, 'status of setting f64s')
    call knl_mseti32traceattribute(set, 'i32', 42, 2, status)
    call check_int(1, status, 'status of setting i32 of trace 2')
    call knl_mseti64traceattribute(set, 'i64', big, 2, status)
    call check_int(1, status, 'status of setting i64 of trace 2')
    call knl_msetf32traceattribute(set, 'f32', 1.5, 2, status)
    call check_int(1, status, 'status of setting f32 of trace 2')
    call knl_msetf64traceattribute(set, 'f64', 0.1_c_double, 2, status)
    call check_int(1, status, 'status of setting f64 of trace 2')
    call knl_msetstringtraceattribute(set, 'text', 'some text' // c_null_char, 2, status)
    call check_int(1, status, 'status of setting text of trace 2')
    call knl_mseti32arraytraceattribute(set, 'i32s', c_loc(i32s), 3, 2, status)
    call check_int(1, status, 'status of setting i32s of trace 2')
    call knl_mseti64arraytraceattribute(set, 'i64s', c_loc(i64s), 2, 2, status)
    call check_int(1, status, 'status of setting i64s of trace 2')
    call knl_msetf32arraytraceattribute(set, 'f32s', c_loc(f32s), 4, 2, status)
    call check_int(1, status, 'status of setting f32s of trace 2')
    call knl_msetf64arraytraceattribute(set, 'f64s', c_loc(f64s), 2, 2, status)
    call check_int(1, status, 'status of setting f64s of trace 2')
  end subroutine write_attributes

  subroutine read_attributes(set)
    type(c_ptr), intent(in) :: set
    integer(c_int) :: status, i32
    integer(c_int64_t) :: i64
    real(c_float) :: f32
    real(c_double) :: f64
    character(len=12) :: text
    integer(c_int), target :: i32s(4)
    integer(c_int64_t), target :: i64s(4)
    real(c_float), target :: f32s(4)
    real(c_double), target :: f64s(4)

    i32 = -7; i64 = -7; f32 = -7; f64 = -7; text = 'before'
    i32s = -7; i64s = -7; f32s = -7; f64s = -7
    call knl_geti32traceattribute(set, 'i32', i32, status)
    call check_int(0, status, 'status of i32')
    call check_int(42, i32, 'i32')
    call knl_geti64traceattribute(set, 'i64', i64, status)
    call check_int(0, status, 'status of i64')
    call check_long(big, i64, 'i64')
    call knl_getf32traceattribute(set, 'f32', f32, status)
    call check_int(0, status, 'status of f32')
    call check_real(1.5_c_double, real(f32, c_double), 'f32')
    call knl_getf64traceattribute(set, 'f64', f64, status)
    call check_int(0, status, 'status of f64')
    call check_real(0.1_c_double, f64, 'f64')
    call knl_getstringtraceattribute(set, 'text', text, status)
    call check_int(0, status, 'status of text')
    call check_text('some text', text, 'text')
    call knl_geti32arraytraceattribute(set, 'i32s', c_loc(i32s), 2, status)
    call check_int(0, status, 'status of i32s')
    call check(all(i32s == [1, -2, -7, -7]), &
        'i32s')
    call knl_geti64arraytraceattribute(set, 'i64s', c_loc(i64s), 4, status)
    call check_int(0, status, 'status of i64s')
    call check(all(i64s == [big, -1_c_int64_t, -7_c_int64_t, -7_c_int64_t]), &
        'i64s')
    call knl_getf32arraytraceattribute(set, 'f32s', c_loc(f32s), 4, status)
    call check_int(0, status, 'status of f32s')
    call check(all(f32s == [0.5, 1.5, 2.5, 3.5]), &
        'f32s')
    call knl_getf64arraytraceattribute(set, 'f64s', c_loc(f64s), 1, status)
    call check_int(0, status, 'status of f64s')
    call check(all(f64s == [0.1_c_double, -7.0_c_double, -7.0_c_double, -7.0_c_double]), &
        'f64s')

    call knl_geti32traceattribute(set, 'absent', i32, status)
    call check_int(1, status, 'status of an absent i32')
    call knl_geti64traceattribute(set, 'absent', i64, status)
    call check_int(1, status, 'status of an absent i64')
    call knl_getf32traceattribute(set, 'absent', f32, status)
    call check_int(1, status, 'status of an absent f32')
    call knl_getf64traceattribute(set, 'absent', f64, status)
    call check_int(1, status, 'status of an absent f64')
    call knl_getstringtraceattribute(set, 'absent', text, status)
    call check_int(1, status, 'status of an absent text')
    call knl_geti32arraytraceattribute(set, 'absent', c_loc(i32s), 4, status)
    call check_int(1, status, 'status of an absent array')
    call check_int(42, i32, 'an absent i32')
    call check_text('some text', text, 'an absent text')

    i32 = -7; i64 = -7; f32 = -7; f64 = -7; text = 'before'
    i32s = -7; i64s = -7; f32s = -7; f64s = -7
    call knl_mgeti32traceattribute(set, 'i32', i32, 2, status)
    call check_int(0, status, 'status of i32 of trace 2')
    call check_int(42, i32, 'i32 of trace 2')
    call knl_mgeti64traceattribute(set, 'i64', i64, 2, status)
    call check_int(0, status, 'status of i64 of trace 2')
    call check_long(big, i64, 'i64 of trace 2')
    call knl_mgetf32traceattribute(set, 'f32', f32, 2, status)
    call check_int(0, status, 'status of f32 of trace 2')
    call check_real(1.5_c_double, real(f32, c_double), 'f32 of trace 2')
    call knl_mgetf64traceattribute(set, 'f64', f64, 2, status)
    call check_int(0, status, 'status of f64 of trace 2')
    call check_real(0.1_c_double, f64, 'f64 of trace 2')
    call knl_mgetstringtraceattribute(set, 'text', text, 2, status)
    call check_int(0, status, 'status of text of trace 2')
    call check_text('some text', text, 'text of trace 2')
    call knl_mgeti32arraytraceattribute(set, 'i32s', c_loc(i32s), 2, 2, status)
    call check_int(0, status, 'status of i32s of trace 2')
    call check(all(i32s == [1, -2, -7, -7]), &
        'i32s of trace 2')
    call knl_mgeti64arraytraceattribute(set, 'i64s', c_loc(i64s), 4, 2, status)
    call check_int(0, status, 'status of i64s of trace 2')
    call check(all(i64s == [big, -1_c_int64_t, -7_c_int64_t, -7_c_int64_t]), &
        'i64s of trace 2')
    call knl_mgetf32arraytraceattribute(set, 'f32s', c_loc(f32s), 4, 2, status)
    call check_int(0, status, 'status of f32s of trace 2')
    call check(all(f32s == [0.5, 1.5, 2.5, 3.5]), &
        'f32s of trace 2')
    call knl_mgetf64arraytraceattribute(set, 'f64s', c_loc(f64s), 1, 2, status)
    call check_int(0, status, 'status of f64s of trace 2')
    call check(all(f64s == [0.1_c_double, -7.0_c_double, -7.0_c_double, -7.0_c_double]), &
        'f64s of trace 2')

    call knl_mgeti32traceattribute(set, 'absent', i32, 2, status)
    call check_int(1, status, 'status of an absent i32 of trace 2')
    call knl_mgeti64traceattribute(set, 'absent', i64, 2, status)
    call check_int(1, status, 'status of an absent i64 of trace 2')
    call knl_mgetf32traceattribute(set, 'absent', f32, 2, status)
    call check_int(1, status, 'status of an absent f32 of trace 2')
    call knl_mgetf64traceattribute(set, 'absent', f64, 2, status)
    call check_int(1, status, 'status of an absent f64 of trace 2')
    call knl_mgetstringtraceattribute(set, 'absent', text, 2, status)
    call check_int(1, status, 'status of an absent text of trace 2')
    call knl_mgeti32arraytraceattribute(set, 'absent', c_loc(i32s), 4, 2, status)
    call check_int(1, status, 'status of an absent array of trace 2')
    call check_int(42, i32, 'an absent i32 of trace 2')
    call check_text('some text', text, 'an absent text of trace 2')

    call knl_getf64traceattribute(set, 'i32', f64, status)
    call check_real(42.0_c_double, f64, 'i32 as f64')
    ! An attribute that is not an array hands out none of its elements.
    i32s = -7
    call knl_geti32arraytraceattribute(set, 'i32', c_loc(i32s), 4, status)
    call check_int(0, status, 'status of i32 as an array')
    call check(all(i32s == -7), 'i32 as an array')
  end subroutine read_attributes

  subroutine use_lists(set)
    type(c_ptr), intent(in) :: set
    character(len=8), parameter :: names(5) = ['i32     ', 'absent  ', 'i64     ', 'f32     ', &
        ' f64    ']
    type(c_ptr) :: list
    integer(c_int) :: status, count, types(5), i32(5)
    integer(c_int64_t) :: i64(5)
    real(c_float) :: f32(5)
    real(c_double) :: f64(5)

    call knl_bldattributelist(names, 5, list, status)
    call check_int(0, status, 'status of making a list')
    call knl_getattributelistsize(list, count)
    call check_int(5, count, 'names of the list')
    call knl_getattributelistpresence(list, set, types, 5, count)
    call check_int(4, count, 'attributes that the set has')
    call check(all(types == [2, 0, 3, 4, 5]), 'types of the attributes of a list')
    i32 = -7
    call knl_geti32traceattributes(list, set, 2, i32, 5, count)
    call check_int(4, count, 'integers read')
    call check(all(i32 == [42, -7, 0, 1, 0]), 'integers of a list')
    i64 = -7
    call knl_geti64traceattributes(list, set, 2, i64, 3, count)
    call check_int(2, count, '64-bit integers read')
    call check(i64(1) == 42 .and. i64(2) == -7 .and. i64(3) == big .and. i64(4) == -7, &
        '64-bit integers of a list')
    f32 = -7
    call knl_getf32traceattributes(list, set, 1, f32, 5, count)
    call check_int(4, count, 'reals read')
    call check(all(f32([1, 2, 4]) == [42.0, -7.0, 1.5]), 'reals of a list')
    f64 = -7
    call knl_getf64traceattributes(list, set, 1, f64, 5, count)
    call check_int(4, count, 'double precisions read')
    call check_real(0.1_c_double, f64(5), 'double precision of a list')
    call knl_getf64traceattributes(list, set, 0, f64, 5, count)
    call check_int(0, count, 'values read of trace 0')

    call knl_seti32traceattributes(list, set, 3, [1, 2], 1, count)
    call check_int(1, count, 'integers written')
    call knl_seti64traceattributes(list, set, 4, [big], 1, count)
    call check_int(1, count, '64-bit integers written')
    call knl_setf32traceattributes(list, set, 5, [2.5], 1, count)
    call check_int(1, count, 'reals written')
    call knl_setf64traceattributes(list, set, 6, [3.5_c_double], 1, count)
    call check_int(1, count, 'double precisions written')
    do count = 3, 6
      call knl_mgeti32traceattribute(set, 'i32', i32(count - 2), count, status)
    end do
    call check(all(i32(1:4) == [1, 0, 2, 3]), 'what has been written from lists')
    call knl_freeattributelist(list)
    call check(.not. c_associated(list), 'handle of a list that was freed')
  end subroutine use_lists

  subroutine find_buffers()
    integer(c_int) :: status
    type(c_ptr) :: buffer

    buffer = c_null_ptr
    call knl_getinputtracebuffer(buffer, 1, status)
    call check_int(0, status, 'status of input 1')
    call check(c_associated(buffer), 'input 1')
    call knl_getinputtracebuffer(buffer, 2, status)
    call check_int(1, status, 'status of input 2')
    call check(.not. c_associated(buffer), 'input 2')
    call knl_getoutputtracebuffer(buffer, 1, status)
    call check_int(0, status, 'status of output 1')
    call check(c_associated(buffer), 'output 1')
    call knl_getoutputtracebuffer(buffer, 0, status)
    call check_int(1, status, 'status of output 0')
    call check(.not. c_associated(buffer), 'output 0')
    call knl_getworktracebuffer(buffer, 3, status)
    call check_int(0, status, 'status of work set 3')
    call check(c_associated(buffer), 'work set 3')
  end subroutine find_buffers

  subroutine build_buffers()
    integer(c_int) :: status, number
    type(c_ptr) :: input, output, work

    call knl_getinputtracebuffer(input, 1, status)
    call knl_getoutputtracebuffer(output, 1, status)
    call knl_bldoutputtracebuffer(1, 3, 4000, input, status)
    call check_int(0, status, 'status of building output 1')
    call knl_bldoutputtracebuffer(2, 3, 4000, input, status)
    call check_int(1, status, 'status of building output 2')
    call knl_gettracelength(output, number, status)
    call check_int(0, status, 'status of a length')
    call check_int(3, number, 'length of output 1')
    call knl_gettracesampleinterval(output, number, status)
    call check_int(0, status, 'status of an interval')
    call check_int(4000, number, 'interval of output 1')

    call knl_bldworktracebufferf0(1, 5, 2000, 7, status)
    call check_int(0, status, 'status of building work set 1')
    call knl_bldworktracebufferf1(2, 6, 2000, 7, input, status)
    call check_int(0, status, 'status of building work set 2')
    call knl_bldworktracebuffer(3, 7, 2000, 7, input, status)
    call check_int(0, status, 'status of building work set 3')
    call knl_getworktracebuffer(work, 1, status)
    call knl_gettracelength(work, number, status)
    call check_int(5, number, 'length of work set 1')
    call knl_istraceattributeexist(work, 'number', status)
    call check_int(1, status, 'work set 1 has no template')
    call knl_getworktracebuffer(work, 2, status)
    call knl_gettracelength(work, number, status)
    call check_int(6, number, 'length of work set 2')
    call knl_istraceattributeexist(work, 'number', status)
    call check_int(0, status, 'work set 2 has a template')
    call knl_getworktracebuffer(work, 3, status)
    call knl_gettracelength(work, number, status)
    call check_int(7, number, 'length of work set 3')
    call knl_istraceattributeexist(work, 'number', status)
    call check_int(0, status, 'work set 3 has a template')
    call knl_getnumberoftraces(work, number, status)
    call check_int(0, number, 'traces of work set 3')

    ! Seen in the host's statistics as the module's progress.
    call knl_informtotaltracesnumber(output, 4)
  end subroutine build_buffers

  subroutine change_geometry(set)
    type(c_ptr), intent(in) :: set
    type(c_ptr) :: nothing
    integer(c_int) :: status, number

    nothing = c_null_ptr
    call knl_settracelength(set, 4, status)
    call check_int(0, status, 'status of setting a length')
    call knl_gettracelength(set, number, status)
    call check_int(4, number, 'a length that was set')
    call knl_settracesampleinterval(set, 1000, status)
    call check_int(0, status, 'status of setting an interval')
    call knl_gettracesampleinterval(set, number, status)
    call check_int(1000, number, 'an interval that was set')
    call knl_setnumberoftraces(set, 2, status)
    call check_int(0, status, 'status of making traces')
    call knl_getnumberoftraces(set, number, status)
    call check_int(0, status, 'status of a number of traces')
    call check_int(2, number, 'traces that were made')

    call knl_gettracelength(nothing, number, status)
    call check_int(1, status, 'status of the length of nothing')
    call knl_gettracesampleinterval(nothing, number, status)
    call check_int(1, status, 'status of the interval of nothing')
    call knl_getnumberoftraces(nothing, number, status)
    call check_int(1, status, 'status of the traces of nothing')
    call check_int(2, number, 'a number asked of nothing')

    call is_trace_buffer_use_scratch(set, number)
    call check_int(1, number, 'scratch is used at first')
    call knl_settracebufferusescratch(set, 0)
    call is_trace_buffer_use_scratch(set, number)
    call check_int(0, number, 'scratch can be done without')
    call knl_settracebufferusescratch(set, 1)
    call is_trace_buffer_use_scratch(set, number)
    call check_int(1, number, 'scratch can be used again')
  end subroutine change_geometry

  subroutine check_descriptor(found, extent, what)
    type(guarded_descriptor), intent(in) :: found
    integer(c_int), intent(in) :: extent
    character(len=*), intent(in) :: what

    call check(found%dsize == 4 .and. found%distance == 4, what // ': bytes of an element')
    call check(found%offset == 0 .and. found%bordr == 3 .and. found%rank == 1 .and. &
        found%lbound == 1, what // ': constant words')
    call check_long(int(extent, c_int64_t), found%extent, what // ': extent')
    call check_long(-7_c_int64_t, found%rserv, what // ': reserved word')
    call check_long(-7_c_int64_t, found%guard, what // ': what lies behind it')
  end subroutine check_descriptor

  ! Two traces of four samples.
  subroutine use_samples(set)
    type(c_ptr), intent(in) :: set
    type(guarded_descriptor) :: found
    real(c_float), target :: values(4)
    real(c_float), pointer :: samples(:)
    integer(c_int) :: status

    values = [1.0, 2.0, 3.0, 4.0]
    call knl_ssettracesamples(set, c_loc(values), status)
    call check_int(1, status, 'status of setting samples')
    values = 10 * values
    call knl_msettracesamples(set, c_loc(values), 2, status)
    call check_int(1, status, 'status of setting samples of trace 2')

    found%rserv = -7
    found%guard = -7
    call knl_sgettracesamples(set, found, status)
    call check_int(0, status, 'status of samples')
    call check_descriptor(found, 4, 'samples')
    call c_f_pointer(found%data, samples, [found%extent])
    call check(all(samples == [1.0, 2.0, 3.0, 4.0]), 'samples')
    call knl_mgettracesamples(set, found, 2, status)
    call check_int(0, status, 'status of samples of trace 2')
    call check_descriptor(found, 4, 'samples of trace 2')
    call c_f_pointer(found%data, samples, [found%extent])
    call check(all(samples == values), 'samples of trace 2')
    samples(4) = -1 ! in the trace itself
  end subroutine use_samples

  ! From the two traces of use_samples and of write_attributes to another set of their kind.
  subroutine copy_traces(set, other)
    type(c_ptr), intent(in) :: set, other
    type(guarded_descriptor) :: found
    real(c_float), pointer :: samples(:)
    integer(c_int) :: status, number

    call knl_scopytracetotrace(set, other, 1, 0, status)
    call check_int(1, status, 'status of copying a header')
    call knl_geti32traceattribute(other, 'i32', number, status)
    call check_int(42, number, 'i32 of a copy')
    call knl_sgettracesamples(other, found, status)
    call c_f_pointer(found%data, samples, [found%extent])
    call check(all(samples == 0), 'samples that were not copied')
    call knl_scopytracetotrace(set, other, 0, 1, status)
    call check(all(samples == [1.0, 2.0, 3.0, 4.0]), 'samples that were copied')

    call knl_mcopytracetotrace(set, other, 1, 1, 2, 3, status)
    call check_int(1, status, 'status of copying trace 2 to trace 3')
    call knl_getnumberoftraces(other, number, status)
    call check_int(3, number, 'traces after copying to trace 3')
    call knl_mgettracesamples(other, found, 3, status)
    call c_f_pointer(found%data, samples, [found%extent])
    call check(all(samples == [10.0, 20.0, 30.0, -1.0]), 'samples of trace 3')

    call knl_cleartraceset(other, status)
    call check_int(1, status, 'status of clearing')
    call check(all(samples == 0), 'samples after clearing')
    call knl_mgeti32traceattribute(other, 'i32', number, 3, status)
    call check_int(0, number, 'i32 after clearing')
  end subroutine copy_traces

  ! The flag is read from the first trace and set on the last one.
  subroutine flag_traces(set)
    type(c_ptr), intent(in) :: set
    integer(c_int) :: status, flag

    call knl_setdatachannelflag(set, 5)
    call knl_getdatachannelflag(set, flag)
    call check_int(5, flag, 'flag of an empty set')
    call knl_setnumberoftraces(set, 2, status)
    call knl_setdatachannelflag(set, 3)
    call knl_getdatachannelflag(set, flag)
    call check_int(0, flag, 'flag of the first of two traces')
  end subroutine flag_traces

  subroutine flag_channel()
    integer(c_int) :: flagged

    call knl_isinputtracebufferflagged(1, 6, flagged)
    call check_int(0, flagged, 'a flag that is not raised')
    call knl_setinputtracebufferflag(1, 2)
    call knl_isinputtracebufferflagged(1, 6, flagged)
    call check_int(1, flagged, 'a flag that is raised')
    call knl_isinputtracebufferflagged(1, 4, flagged)
    call check_int(0, flagged, 'another flag')
    flagged = -7
    call knl_isinputtracebufferflagged(2, 2, flagged)
    call check_int(0, flagged, 'a flag of no channel')
  end subroutine flag_channel

  ! Three of its four samples, and its number doubled.
  subroutine pass_trace_on()
    type(c_ptr) :: input, output
    integer(c_int) :: status, number

    call knl_getinputtracebuffer(input, 1, status)
    call knl_getoutputtracebuffer(output, 1, status)
    call knl_scopytracetotrace(input, output, 1, 1, status)
    call check_int(1, status, 'status of passing a trace on')
    call knl_geti32traceattribute(input, 'number', number, status)
    call knl_seti32traceattribute(output, 'number', 2 * number, status)
  end subroutine pass_trace_on
end module trace_checks

integer function preprocess()
  use, intrinsic :: iso_c_binding, only: c_int, c_ptr
  use trace_checks
  implicit none
  type(c_ptr) :: set, other
  integer(c_int) :: status

  call query_schema()
  call find_buffers()
  call build_buffers()
  call knl_getworktracebuffer(set, 4, status)
  call change_geometry(set)
  call write_attributes(set)
  call read_attributes(set)
  call use_lists(set)
  call use_samples(set)
  call knl_bldworktracebufferf1(5, 4, 1000, 0, set, status)
  call knl_getworktracebuffer(other, 5, status)
  call copy_traces(set, other)
  call knl_getworktracebuffer(set, 6, status)
  call flag_traces(set)
  call flag_channel()
  preprocess = 0
end function preprocess

integer function process()
  use trace_checks, only: pass_trace_on
  implicit none

  call pass_trace_on()
  process = 0
end function process

integer function postprocess()
  use, intrinsic :: iso_c_binding, only: c_int
  use checks, only: report_checks
  implicit none
  integer :: places
  interface
    function remove_work_traces() result(places) bind(C, name="knl_removeWorkTraces")
      import :: c_int
      integer(c_int) :: places
    end function remove_work_traces
  end interface

  call report_checks()
  places = remove_work_traces()
  postprocess = 0
end function postprocess
