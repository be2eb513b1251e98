! The module vorn_knl, first part: module parameters and options, groups and libraries. What the job
! sets is in ModuleInterfaceJobTest.cpp.
include 'checks.inc'

module modern_parameter_checks
  use, intrinsic :: iso_c_binding, only: c_associated, c_double, c_float, c_int, c_int64_t, &
      c_null_ptr, c_ptr
  use checks
  use vorn_knl
  implicit none
  private
  public :: read_module_parameters, read_texts, ask_for_absent_module_parameters, call_without_interface
  public :: read_group, write_group, read_library, write_library

  integer(c_int64_t), parameter :: big = 1099511627776_c_int64_t ! 2 to the power of 40

contains

  subroutine read_module_parameters(group, library)
    type(c_ptr), intent(out) :: group, library
    logical :: found
    integer(c_int) :: i32
    integer(c_int64_t) :: i64
    real(c_float) :: f32
    real(c_double) :: f64
    character(len=12) :: text
    integer(c_int), allocatable :: i32s(:)
    integer(c_int64_t), allocatable :: i64s(:)
    real(c_float), allocatable :: f32s(:)
    real(c_double), allocatable :: f64s(:)
    type(c_ptr) :: handle

    call knl_get_module_parameter('I32', i32, found)
    call check(found .and. i32 == 42, 'I32')
    call knl_get_module_parameter('I64', i64, found)
    call check(found .and. i64 == big, 'I64')
    call knl_get_module_parameter('F32', f32, found)
    call check(found, 'F32 is found')
    call check_real(1.5_c_double, real(f32, c_double), 'F32')
    call knl_get_module_parameter('F64', f64, found)
    call check(found, 'F64 is found')
    call check_real(0.1_c_double, f64, 'F64')
    call knl_get_module_parameter('TEXT', text, found)
    call check(found, 'TEXT is found')
    call check_text('some text', text, 'TEXT')
    call knl_get_module_parameter('I32S', i32s, found)
    call check_int(3, size(i32s, kind=c_int), 'size of I32S')
    call check(found .and. all(i32s == [1, -2, 3]), 'I32S')
    call knl_get_module_parameter('I64S', i64s, found)
    call check_int(2, size(i64s, kind=c_int), 'size of I64S')
    call check(found .and. all(i64s == [big, -1_c_int64_t]), 'I64S')
    call knl_get_module_parameter('F32S', f32s, found)
    call check_int(4, size(f32s, kind=c_int), 'size of F32S')
    call check(found .and. all(f32s == [0.5, 1.5, 2.5, 3.5]), 'F32S')
    call knl_get_module_parameter('F64S', f64s, found)
    call check_int(1, size(f64s, kind=c_int), 'size of F64S')
    call check(found .and. all(f64s == [0.1_c_double]), 'F64S')
    call knl_get_module_parameter_group('GROUP', group, found)
    call check(found .and. c_associated(group), 'GROUP')
    call knl_get_module_parameter_library('LIBRARY', library, found)
    call check(found .and. c_associated(library), 'LIBRARY')

    ! Blanks around a name do not count; values are converted.
    call knl_get_module_parameter('  I32S   ', i32s, found)
    call check(found .and. size(i32s) == 3, 'I32S with blanks')
    call knl_get_module_parameter('I32', text, found)
    call check_text('42', text, 'I32 as text')
    call knl_get_module_parameter('I32', f64s, found)
    call check(found .and. size(f64s) == 1, 'I32 as an array')
    call check_real(42._c_double, f64s(1), 'element of I32')
    call knl_get_module_parameter('I32S', f32s, found)
    call check(found .and. size(f32s) == 3, 'I32S as an array of another type')
    call check_real(-2._c_double, real(f32s(2), c_double), 'an element of I32S')
    call knl_get_module_parameter('F32S', i64s, found)
    call check(found .and. size(i64s) == 4, 'F32S as an array of integers')
    call check(all(i64s == [0, 1, 2, 3]), 'elements of F32S without their fractions')
    call knl_get_module_parameter('F64S', i32s, found)
    call check(found .and. size(i32s) == 1, 'F64S as an array of integers')
    call check_int(0, i32s(1), 'element of F64S')
    call knl_get_module_parameter_library('I32', handle, found)
    call check(found .and. .not. c_associated(handle), 'I32 as a library')
  end subroutine read_module_parameters

  ! Of any length, and lists of them.
  subroutine read_texts(group, library)
    type(c_ptr), intent(in) :: group, library
    logical :: found
    character(len=400) :: path
    character(len=:), allocatable :: text, texts(:)

    call knl_get_module_parameter('PATH', path, found)
    call check(found .and. len_trim(path) == 300, 'a long text')
    call knl_get_module_parameter_text('PATH', text, found)
    call check(found .and. len(text) == 300, 'a long text of its own length')
    call check(text(300:) == 'z', 'the end of a long text')
    call knl_get_module_parameter('LINES', path, found)
    call check_text('one', trim(path), 'the first line')
    call knl_get_module_parameter_text('LINES', text, found)
    call check_int(11, len(text, kind=c_int), 'length of all lines')
    call knl_get_module_parameter_texts('LINES', texts, found)
    call check(found .and. size(texts) == 3, 'number of texts')
    call check_int(6, len(texts, kind=c_int), 'length of the longest text')
    call check(texts(1) == 'one' .and. texts(2) == '' .and. texts(3) == 'two  b', 'texts')
    call knl_get_module_parameter_texts('EMPTY', texts, found)
    call check(found .and. size(texts) == 0, 'an empty list of texts')
    call knl_get_module_parameter_texts('I32', texts, found)
    call check(found .and. size(texts) == 1, 'a number as a list of texts')
    call check_text('42', texts(1), 'a number in a list of texts')
    call knl_get_module_parameter_texts('NONE', texts, found)
    call check(.not. found .and. size(texts) == 1, 'an absent list of texts')
    call knl_get_module_parameter_text('NONE', text, found)
    call check(.not. found .and. len(text) == 11, 'an absent text of any length')

    call knl_get_group_parameter(group, 'PATH', 2, path, found)
    call check(found .and. len_trim(path) == 300, 'a long text of a group')
    call knl_get_group_parameter_text(group, 'PATH', 2, text, found)
    call check(found .and. len(text) == 300, 'a long text of a group of its own length')
    call knl_get_group_parameter_texts(group, 'LINES', 2, texts, found)
    call check(found .and. size(texts) == 3, 'number of texts of a group')
    call knl_get_group_parameter_texts(group, 'LINES', 1, texts, found)
    call check(.not. found, 'texts of a row without any')
    call knl_get_library_parameter(library, 'PATH', path, found)
    call check(found .and. len_trim(path) == 300, 'a long text of a library')
    call knl_get_library_parameter_text(library, 'PATH', text, found)
    call check(found .and. len(text) == 300, 'a long text of a library of its own length')
    call knl_get_library_parameter_texts(library, 'LINES', texts, found)
    call check(found .and. size(texts) == 3, 'number of texts of a library')
  end subroutine read_texts

  subroutine ask_for_absent_module_parameters()
    logical :: found
    integer(c_int) :: i32
    integer(c_int64_t) :: i64
    real(c_float) :: f32
    real(c_double) :: f64
    character(len=12) :: text
    integer(c_int), allocatable :: i32s(:)
    integer(c_int64_t), allocatable :: i64s(:)
    real(c_float), allocatable :: f32s(:)
    real(c_double), allocatable :: f64s(:)
    type(c_ptr) :: handle

    i32 = -7
    i32s = [-7]
    text = 'before'
    handle = c_null_ptr
    call knl_get_module_parameter('NONE', i32, found)
    call check(.not. found .and. i32 == -7, 'an absent i32')
    i64 = -7
    call knl_get_module_parameter('NONE', i64, found)
    call check(.not. found .and. i64 == -7, 'an absent i64')
    f32 = -7
    call knl_get_module_parameter('NONE', f32, found)
    call check(.not. found .and. f32 == -7, 'an absent f32')
    f64 = -7
    call knl_get_module_parameter('NONE', f64, found)
    call check(.not. found .and. f64 == -7, 'an absent f64')
    call knl_get_module_parameter('NONE', text, found)
    call check(.not. found .and. text == 'before', 'an absent text')
    call knl_get_module_parameter('NONE', i32s, found)
    call check(.not. found .and. all(i32s == [-7]), 'an absent array')
    call knl_get_module_parameter('NONE', i64s, found)
    call check(.not. found .and. .not. allocated(i64s), 'an absent array of i64')
    call knl_get_module_parameter('NONE', f32s, found)
    call check(.not. found .and. .not. allocated(f32s), 'an absent array of f32')
    call knl_get_module_parameter('NONE', f64s, found)
    call check(.not. found .and. .not. allocated(f64s), 'an absent array of f64')
    call knl_get_module_parameter_group('NONE', handle, found)
    call check(.not. found .and. .not. c_associated(handle), 'an absent group')
  end subroutine ask_for_absent_module_parameters

  ! Code that was written without explicit interfaces works in the scope of the module.
  subroutine call_without_interface()
    integer(c_int) :: number, istat

    call knl_geti32moduleparameter('I32', number, istat)
    call check(istat == 1 .and. number == 42, 'I32 without an interface')
  end subroutine call_without_interface

  ! The values of the module parameters are in the second row.
  subroutine read_group(group)
    type(c_ptr), intent(in) :: group
    logical :: found
    integer(c_int) :: i32
    integer(c_int64_t) :: i64
    real(c_float) :: f32
    real(c_double) :: f64
    character(len=12) :: text
    integer(c_int), allocatable :: i32s(:)
    integer(c_int64_t), allocatable :: i64s(:)
    real(c_float), allocatable :: f32s(:)
    real(c_double), allocatable :: f64s(:)
    integer(c_int) :: rows, status
    type(c_ptr) :: handle

    call knl_get_group_parameter_size(group, rows, status)
    call check(status == 1 .and. rows == 2, 'size of the group')

    call knl_get_group_parameter(group, 'I32', 2, i32, found)
    call check(found .and. i32 == 42, 'I32')
    call knl_get_group_parameter(group, 'I64', 2, i64, found)
    call check(found .and. i64 == big, 'I64')
    call knl_get_group_parameter(group, 'F32', 2, f32, found)
    call check(found, 'F32 is found')
    call check_real(1.5_c_double, real(f32, c_double), 'F32')
    call knl_get_group_parameter(group, 'F64', 2, f64, found)
    call check(found, 'F64 is found')
    call check_real(0.1_c_double, f64, 'F64')
    call knl_get_group_parameter(group, 'TEXT', 2, text, found)
    call check(found, 'TEXT is found')
    call check_text('some text', text, 'TEXT')
    call knl_get_group_parameter(group, 'I32S', 2, i32s, found)
    call check_int(3, size(i32s, kind=c_int), 'size of I32S')
    call check(found .and. all(i32s == [1, -2, 3]), 'I32S')
    call knl_get_group_parameter(group, 'I64S', 2, i64s, found)
    call check_int(2, size(i64s, kind=c_int), 'size of I64S')
    call check(found .and. all(i64s == [big, -1_c_int64_t]), 'I64S')
    call knl_get_group_parameter(group, 'F32S', 2, f32s, found)
    call check_int(4, size(f32s, kind=c_int), 'size of F32S')
    call check(found .and. all(f32s == [0.5, 1.5, 2.5, 3.5]), 'F32S')
    call knl_get_group_parameter(group, 'F64S', 2, f64s, found)
    call check_int(1, size(f64s, kind=c_int), 'size of F64S')
    call check(found .and. all(f64s == [0.1_c_double]), 'F64S')
    call knl_get_group_parameter_library(group, 'LIBRARY', 2, handle, found)
    call check(found .and. c_associated(handle), 'LIBRARY')
    call knl_get_group_parameter_group(group, 'GROUP', 2, handle, found)
    call check(found .and. c_associated(handle), 'GROUP')
    call knl_get_group_parameter(group, 'I32', 1, i32, found)
    call check(.not. found .and. i32 == 42, 'I32 of the first row')
    call knl_get_group_parameter(group, 'I32S', 1, i32s, found)
    call check(.not. found .and. size(i32s) == 3, 'I32S of the first row')
  end subroutine read_group

  subroutine write_group(group)
    type(c_ptr), intent(in) :: group
    logical :: found
    integer(c_int) :: i32
    integer(c_int64_t) :: i64
    real(c_float) :: f32
    real(c_double) :: f64
    character(len=12) :: text
    integer(c_int), allocatable :: i32s(:)
    integer(c_int64_t), allocatable :: i64s(:)
    real(c_float), allocatable :: f32s(:)
    real(c_double), allocatable :: f64s(:)
    integer(c_int) :: rows, status
    type(c_ptr) :: made, again

    f32s = [0.5, 1.5, 2.5]
    call knl_set_group_parameter(group, 'NEW I32', 4, -3, status)
    call check_int(1, status, 'status of setting NEW I32')
    call knl_get_group_parameter(group, 'NEW I32', 4, i32, found)
    call check(found .and. i32 == -3, 'NEW I32')
    call knl_set_group_parameter(group, 'NEW I64', 4, -big, status)
    call check_int(1, status, 'status of setting NEW I64')
    call knl_get_group_parameter(group, 'NEW I64', 4, i64, found)
    call check(found .and. i64 == -big, 'NEW I64')
    call knl_set_group_parameter(group, 'NEW F32', 4, 2.5, status)
    call check_int(1, status, 'status of setting NEW F32')
    call knl_get_group_parameter(group, 'NEW F32', 4, f32, found)
    call check_real(2.5_c_double, real(f32, c_double), 'NEW F32')
    call knl_set_group_parameter(group, 'NEW F64', 4, 0.2_c_double, status)
    call check_int(1, status, 'status of setting NEW F64')
    call knl_get_group_parameter(group, 'NEW F64', 4, f64, found)
    call check_real(0.2_c_double, f64, 'NEW F64')
    call knl_set_group_parameter(group, 'NEW TEXT', 4, 'written  ', status)
    call check_int(1, status, 'status of setting NEW TEXT')
    call knl_get_group_parameter(group, 'NEW TEXT', 4, text, found)
    call check_text('written', text, 'NEW TEXT')
    call knl_set_group_parameter(group, 'NEW I32S', 4, [5, 6, 7], status)
    call check_int(1, status, 'status of setting NEW I32S')
    call knl_get_group_parameter(group, 'NEW I32S', 4, i32s, found)
    call check(found .and. all(i32s == [5, 6, 7]), 'NEW I32S')
    call knl_set_group_parameter(group, 'NEW I64S', 4, [big, 6_c_int64_t], status)
    call check_int(1, status, 'status of setting NEW I64S')
    call knl_get_group_parameter(group, 'NEW I64S', 4, i64s, found)
    call check(found .and. all(i64s == [big, 6_c_int64_t]), 'NEW I64S')
    call knl_set_group_parameter(group, 'NEW F32S', 4, f32s(::2), status)
    call check_int(1, status, 'status of setting NEW F32S')
    call knl_get_group_parameter(group, 'NEW F32S', 4, f32s, found)
    call check(found .and. all(f32s == [0.5, 2.5]), 'NEW F32S')
    call knl_set_group_parameter(group, 'NEW F64S', 4, [0.1_c_double, 0.2_c_double], status)
    call check_int(1, status, 'status of setting NEW F64S')
    call knl_get_group_parameter(group, 'NEW F64S', 4, f64s, found)
    call check(found .and. all(f64s == [0.1_c_double, 0.2_c_double]), 'NEW F64S')
    call knl_set_group_parameter(group, 'NO F64S', 4, f64s(:0), status)
    call check_int(1, status, 'status of setting NO F64S')
    call knl_get_group_parameter(group, 'NO F64S', 4, f64s, found)
    call check(found .and. size(f64s) == 0, 'NO F64S')
    call knl_get_group_parameter_size(group, rows, status)
    call check_int(4, rows, 'size of the group with new rows')

    made = c_null_ptr
    call knl_set_group_parameter_group(group, 'NEW GROUP', 4, made, status)
    call check(status == 1 .and. c_associated(made), 'a new group')
    call knl_set_group_parameter_group(group, 'NEW GROUP', 4, again, status)
    call check(c_associated(again, made), 'a new group is found again')
  end subroutine write_group

  subroutine read_library(library)
    type(c_ptr), intent(in) :: library
    logical :: found
    integer(c_int) :: i32
    integer(c_int64_t) :: i64
    real(c_float) :: f32
    real(c_double) :: f64
    character(len=12) :: text
    integer(c_int), allocatable :: i32s(:)
    integer(c_int64_t), allocatable :: i64s(:)
    real(c_float), allocatable :: f32s(:)
    real(c_double), allocatable :: f64s(:)
    integer(c_int) :: number, status
    type(c_ptr) :: handle

    call knl_get_library_type(library, number, status)
    call check(status == 0 .and. number == 12, 'type of a library')

    call knl_get_library_parameter(library, 'I32', i32, found)
    call check(found .and. i32 == 42, 'I32')
    call knl_get_library_parameter(library, 'I64', i64, found)
    call check(found .and. i64 == big, 'I64')
    call knl_get_library_parameter(library, 'F32', f32, found)
    call check(found, 'F32 is found')
    call check_real(1.5_c_double, real(f32, c_double), 'F32')
    call knl_get_library_parameter(library, 'F64', f64, found)
    call check(found, 'F64 is found')
    call check_real(0.1_c_double, f64, 'F64')
    call knl_get_library_parameter(library, 'TEXT', text, found)
    call check(found, 'TEXT is found')
    call check_text('some text', text, 'TEXT')
    call knl_get_library_parameter(library, 'I32S', i32s, found)
    call check_int(3, size(i32s, kind=c_int), 'size of I32S')
    call check(found .and. all(i32s == [1, -2, 3]), 'I32S')
    call knl_get_library_parameter(library, 'I64S', i64s, found)
    call check_int(2, size(i64s, kind=c_int), 'size of I64S')
    call check(found .and. all(i64s == [big, -1_c_int64_t]), 'I64S')
    call knl_get_library_parameter(library, 'F32S', f32s, found)
    call check_int(4, size(f32s, kind=c_int), 'size of F32S')
    call check(found .and. all(f32s == [0.5, 1.5, 2.5, 3.5]), 'F32S')
    call knl_get_library_parameter(library, 'F64S', f64s, found)
    call check_int(1, size(f64s, kind=c_int), 'size of F64S')
    call check(found .and. all(f64s == [0.1_c_double]), 'F64S')
    call knl_get_library_parameter_group(library, 'GROUP', handle, found)
    call check(found .and. c_associated(handle), 'GROUP')
    call knl_get_library_parameter_library(library, 'OTHER', handle, found)
    call check(found .and. c_associated(handle), 'OTHER')
    call knl_get_library_parameter(library, 'NONE', i32, found)
    call check(.not. found .and. i32 == 42, 'an absent value')
    status = -7
    call knl_is_library_attribute_exist(library, 'I32', status)
    call check_int(-7, status, 'a question that is never answered')
  end subroutine read_library

  subroutine write_library(library)
    type(c_ptr), intent(in) :: library
    logical :: found
    integer(c_int) :: i32
    integer(c_int64_t) :: i64
    real(c_float) :: f32
    real(c_double) :: f64
    character(len=12) :: text
    integer(c_int), allocatable :: i32s(:)
    integer(c_int64_t), allocatable :: i64s(:)
    real(c_float), allocatable :: f32s(:)
    real(c_double), allocatable :: f64s(:)
    integer(c_int) :: status
    type(c_ptr) :: made, again

    f32s = [0.5, 1.5, 2.5]
    call knl_set_library_parameter(library, 'NEW I32', -3, status)
    call check_int(1, status, 'status of setting NEW I32')
    call knl_get_library_parameter(library, 'NEW I32', i32, found)
    call check(found .and. i32 == -3, 'NEW I32')
    call knl_set_library_parameter(library, 'NEW I64', -big, status)
    call check_int(1, status, 'status of setting NEW I64')
    call knl_get_library_parameter(library, 'NEW I64', i64, found)
    call check(found .and. i64 == -big, 'NEW I64')
    call knl_set_library_parameter(library, 'NEW F32', 2.5, status)
    call check_int(1, status, 'status of setting NEW F32')
    call knl_get_library_parameter(library, 'NEW F32', f32, found)
    call check_real(2.5_c_double, real(f32, c_double), 'NEW F32')
    call knl_set_library_parameter(library, 'NEW F64', 0.2_c_double, status)
    call check_int(1, status, 'status of setting NEW F64')
    call knl_get_library_parameter(library, 'NEW F64', f64, found)
    call check_real(0.2_c_double, f64, 'NEW F64')
    call knl_set_library_parameter(library, 'NEW TEXT', 'written  ', status)
    call check_int(1, status, 'status of setting NEW TEXT')
    call knl_get_library_parameter(library, 'NEW TEXT', text, found)
    call check_text('written', text, 'NEW TEXT')
    call knl_set_library_parameter(library, 'NEW I32S', [5, 6, 7], status)
    call check_int(1, status, 'status of setting NEW I32S')
    call knl_get_library_parameter(library, 'NEW I32S', i32s, found)
    call check(found .and. all(i32s == [5, 6, 7]), 'NEW I32S')
    call knl_set_library_parameter(library, 'NEW I64S', [big, 6_c_int64_t], status)
    call check_int(1, status, 'status of setting NEW I64S')
    call knl_get_library_parameter(library, 'NEW I64S', i64s, found)
    call check(found .and. all(i64s == [big, 6_c_int64_t]), 'NEW I64S')
    call knl_set_library_parameter(library, 'NEW F32S', f32s(::2), status)
    call check_int(1, status, 'status of setting NEW F32S')
    call knl_get_library_parameter(library, 'NEW F32S', f32s, found)
    call check(found .and. all(f32s == [0.5, 2.5]), 'NEW F32S')
    call knl_set_library_parameter(library, 'NEW F64S', [0.1_c_double, 0.2_c_double], status)
    call check_int(1, status, 'status of setting NEW F64S')
    call knl_get_library_parameter(library, 'NEW F64S', f64s, found)
    call check(found .and. all(f64s == [0.1_c_double, 0.2_c_double]), 'NEW F64S')
    call knl_set_library_parameter(library, 'NO F64S', f64s(:0), status)
    call check_int(1, status, 'status of setting NO F64S')
    call knl_get_library_parameter(library, 'NO F64S', f64s, found)
    call check(found .and. size(f64s) == 0, 'NO F64S')

    made = c_null_ptr
    call knl_set_library_parameter_group(library, 'NEW GROUP', made, status)
    call check(status == 1 .and. c_associated(made), 'a new group')
    call knl_set_library_parameter_group(library, 'NEW GROUP', again, status)
    call check(c_associated(again, made), 'a new group is found again')
  end subroutine write_library
end module modern_parameter_checks

integer function preprocess()
  use, intrinsic :: iso_c_binding, only: c_int, c_ptr
  use checks, only: check
  use modern_parameter_checks
  use vorn_knl, only: knl_get_module_processing_option, knl_set_module_processing_option
  implicit none
  type(c_ptr) :: group, library
  integer(c_int) :: option
  logical :: found

  call read_module_parameters(group, library)
  call read_texts(group, library)
  call ask_for_absent_module_parameters()
  call call_without_interface()
  call read_group(group)
  call write_group(group)
  call read_library(library)
  call write_library(library)
  ! The job's test finds this option on the module.
  option = -7
  call knl_get_module_processing_option('MODERN OPTION', option, found)
  call check(.not. found .and. option == -7, 'an option that is not set')
  call knl_set_module_processing_option('MODERN OPTION  ', 17)
  call knl_get_module_processing_option('MODERN OPTION  ', option, found)
  call check(found .and. option == 17, 'an option that is set')
  preprocess = 0
end function preprocess

integer function process()
  implicit none

  process = 0
end function process

integer function postprocess()
  use checks, only: report_checks
  implicit none

  call report_checks()
  postprocess = 0
end function postprocess
