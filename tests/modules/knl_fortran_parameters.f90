! The Fortran form, first part: module parameters and options, groups and libraries, called by their
! exported names without explicit interfaces. What the job sets is in ModuleInterfaceJobTest.cpp.
include 'checks.inc'

module parameter_checks
  use, intrinsic :: iso_c_binding, only: c_associated, c_double, c_float, c_int, c_int64_t, c_loc, &
      c_null_char, c_null_ptr, c_ptr
  use checks
  implicit none
  private
  public :: read_module_parameters, ask_for_absent_module_parameters
  public :: read_group, write_group, read_library, write_library

  integer(c_int64_t), parameter :: big = 1099511627776_c_int64_t ! 2 to the power of 40

contains

  subroutine read_module_parameters(group, library)
    type(c_ptr), intent(out) :: group, library
    integer(c_int) :: status, i32, count
    integer(c_int64_t) :: i64
    real(c_float) :: f32
    real(c_double) :: f64
    character(len=12) :: text
    integer(c_int), target :: i32s(4)
    integer(c_int64_t), target :: i64s(4)
    real(c_float), target :: f32s(4)
    real(c_double), target :: f64s(4)
    type(c_ptr) :: handle

    i32 = -7; i64 = -7; f32 = -7; f64 = -7; text = 'before'; count = -7
    i32s = -7; i64s = -7; f32s = -7; f64s = -7; handle = c_null_ptr

    call knl_geti32moduleparameter('I32', i32, status)
    call check_int(1, status, 'status of I32')
    call check_int(42, i32, 'I32')
    call knl_geti64moduleparameter('I64', i64, status)
    call check_int(1, status, 'status of I64')
    call check_long(big, i64, 'I64')
    call knl_getf32moduleparameter('F32', f32, status)
    call check_int(1, status, 'status of F32')
    call check_real(1.5_c_double, real(f32, c_double), 'F32')
    call knl_getf64moduleparameter('F64', f64, status)
    call check_int(1, status, 'status of F64')
    call check_real(0.1_c_double, f64, 'F64')
    call knl_getstrmoduleparameter('TEXT', text, status)
    call check_int(1, status, 'status of TEXT')
    call check_text('some text', text, 'TEXT')
    call knl_geti32arraymoduleparameter('I32S', c_loc(i32s), count, status)
    call check_int(1, status, 'status of I32S')
    call check_int(3, count, 'count of I32S')
    call check(all(i32s == [1, -2, 3, -7]), 'I32S')
    call knl_geti64arraymoduleparameter('I64S', c_loc(i64s), count, status)
    call check_int(1, status, 'status of I64S')
    call check_int(2, count, 'count of I64S')
    call check(all(i64s == [big, -1_c_int64_t, -7_c_int64_t, -7_c_int64_t]), 'I64S')
    call knl_getf32arraymoduleparameter('F32S', c_loc(f32s), count, status)
    call check_int(1, status, 'status of F32S')
    call check_int(4, count, 'count of F32S')
    call check(all(f32s == [0.5, 1.5, 2.5, 3.5]), 'F32S')
    call knl_getf64arraymoduleparameter('F64S', c_loc(f64s), count, status)
    call check_int(1, status, 'status of F64S')
    call check_int(1, count, 'count of F64S')
    call check(all(f64s == [0.1_c_double, -7.0_c_double, -7.0_c_double, -7.0_c_double]), 'F64S')
    call knl_getgroupmoduleparameter('GROUP', group, status)
    call check_int(1, status, 'status of GROUP')
    call check(c_associated(group), 'GROUP')
    call knl_getlibmoduleparameter('LIBRARY', library, status)
    call check_int(1, status, 'status of LIBRARY')
    call check(c_associated(library), 'LIBRARY')

    ! Blanks around a name do not count; values are converted; a number is not a library.
    call knl_getf64moduleparameter('  I32   ', f64, status)
    call check_int(1, status, 'status of I32 with blanks')
    call check_real(42.0_c_double, f64, 'I32 with blanks')
    call knl_getstrmoduleparameter('I32', text, status)
    call check_text('42', text, 'I32 as text')
    call knl_getlibmoduleparameter('I32', handle, status)
    call check_int(1, status, 'status of I32 as a library')
    call check(.not. c_associated(handle), 'I32 as a library')
  end subroutine read_module_parameters

  subroutine ask_for_absent_module_parameters()
    integer(c_int) :: status, i32, count
    integer(c_int64_t) :: i64
    real(c_float) :: f32
    real(c_double) :: f64
    character(len=12) :: text
    integer(c_int), target :: i32s(4)
    integer(c_int64_t), target :: i64s(4)
    real(c_float), target :: f32s(4)
    real(c_double), target :: f64s(4)
    type(c_ptr) :: handle

    i32 = -7; i64 = -7; f32 = -7; f64 = -7; text = 'before'; count = -7
    i32s = -7; i64s = -7; f32s = -7; f64s = -7; handle = c_null_ptr

    call knl_geti32moduleparameter('NONE', i32, status)
    call check_int(0, status, 'status of an absent i32')
    call knl_geti64moduleparameter('NONE', i64, status)
    call check_int(0, status, 'status of an absent i64')
    call knl_getf32moduleparameter('NONE', f32, status)
    call check_int(0, status, 'status of an absent f32')
    call knl_getf64moduleparameter('NONE', f64, status)
    call check_int(0, status, 'status of an absent f64')
    call knl_getstrmoduleparameter('NONE', text, status)
    call check_int(0, status, 'status of an absent text')
    call knl_geti32arraymoduleparameter('NONE', c_loc(i32s), count, status)
    call check_int(0, status, 'status of an absent array of i32')
    call knl_geti64arraymoduleparameter('NONE', c_loc(i64s), count, status)
    call check_int(0, status, 'status of an absent array of i64')
    call knl_getf32arraymoduleparameter('NONE', c_loc(f32s), count, status)
    call check_int(0, status, 'status of an absent array of f32')
    call knl_getf64arraymoduleparameter('NONE', c_loc(f64s), count, status)
    call check_int(0, status, 'status of an absent array of f64')
    call knl_getlibmoduleparameter('NONE', handle, status)
    call check_int(0, status, 'status of an absent library')
    call knl_getgroupmoduleparameter('NONE', handle, status)
    call check_int(0, status, 'status of an absent group')
    call check(i32 == -7 .and. i64 == -7 .and. f32 == -7 .and. f64 == -7 .and. count == -7, &
        'absent numbers are left alone')
    call check(all(i32s == -7) .and. all(i64s == -7) .and. all(f32s == -7) .and. all(f64s == -7), &
        'absent arrays are left alone')
    call check_text('before', text, 'an absent text')
    call check(.not. c_associated(handle), 'absent handles are left alone')
  end subroutine ask_for_absent_module_parameters

  ! The values of the module parameters are in the second row.
  subroutine read_group(group)
    type(c_ptr), intent(in) :: group
    integer(c_int) :: status, i32, count
    integer(c_int64_t) :: i64
    real(c_float) :: f32
    real(c_double) :: f64
    character(len=12) :: text
    integer(c_int), target :: i32s(4)
    integer(c_int64_t), target :: i64s(4)
    real(c_float), target :: f32s(4)
    real(c_double), target :: f64s(4)
    type(c_ptr) :: handle
    type(c_ptr) :: nothing

    i32 = -7; i64 = -7; f32 = -7; f64 = -7; text = 'before'; count = -7
    i32s = -7; i64s = -7; f32s = -7; f64s = -7; handle = c_null_ptr

    nothing = c_null_ptr
    status = -7
    call knl_getgroupparametersize(group, count, status)
    call check_int(2, count, 'size of the group')
    call check_int(1, status, 'status of a size')
    call knl_getgroupparametersize(nothing, count, status)
    call check_int(0, count, 'size of no group')
    call check_int(1, status, 'status of the size of no group')

    call knl_geti32groupparameter(group, 'I32', 2, i32, status)
    call check_int(1, status, 'status of I32')
    call check_int(42, i32, 'I32')
    call knl_geti64groupparameter(group, 'I64', 2, i64, status)
    call check_int(1, status, 'status of I64')
    call check_long(big, i64, 'I64')
    call knl_getf32groupparameter(group, 'F32', 2, f32, status)
    call check_int(1, status, 'status of F32')
    call check_real(1.5_c_double, real(f32, c_double), 'F32')
    call knl_getf64groupparameter(group, 'F64', 2, f64, status)
    call check_int(1, status, 'status of F64')
    call check_real(0.1_c_double, f64, 'F64')
    call knl_getstrgroupparameter(group, 'TEXT', 2, text, status)
    call check_int(1, status, 'status of TEXT')
    call check_text('some text', text, 'TEXT')
    call knl_geti32arraygroupparameter(group, 'I32S', 2, c_loc(i32s), count, status)
    call check_int(1, status, 'status of I32S')
    call check_int(3, count, 'count of I32S')
    call check(all(i32s == [1, -2, 3, -7]), 'I32S')
    call knl_geti64arraygroupparameter(group, 'I64S', 2, c_loc(i64s), count, status)
    call check_int(1, status, 'status of I64S')
    call check_int(2, count, 'count of I64S')
    call check(all(i64s == [big, -1_c_int64_t, -7_c_int64_t, -7_c_int64_t]), 'I64S')
    call knl_getf32arraygroupparameter(group, 'F32S', 2, c_loc(f32s), count, status)
    call check_int(1, status, 'status of F32S')
    call check_int(4, count, 'count of F32S')
    call check(all(f32s == [0.5, 1.5, 2.5, 3.5]), 'F32S')
    call knl_getf64arraygroupparameter(group, 'F64S', 2, c_loc(f64s), count, status)
    call check_int(1, status, 'status of F64S')
    call check_int(1, count, 'count of F64S')
    call check(all(f64s == [0.1_c_double, -7.0_c_double, -7.0_c_double, -7.0_c_double]), 'F64S')
    call knl_getlibgroupparameter(group, 'LIBRARY', 2, handle, status)
    call check_int(1, status, 'status of LIBRARY')
    call check(c_associated(handle), 'LIBRARY')
    call knl_getgrpgroupparameter(group, 'GROUP', 2, handle, status)
    call check_int(1, status, 'status of GROUP')
    call knl_getgroupparametersize(handle, count, status)
    call check_int(1, count, 'size of the inner group')

    call knl_geti32groupparameter(group, 'I32', 1, i32, status)
    call check_int(0, status, 'status in the first row')
    call knl_geti32groupparameter(group, 'I32', 0, i32, status)
    call check_int(0, status, 'status in no row')
    call knl_geti32groupparameter(nothing, 'I32', 2, i32, status)
    call check_int(0, status, 'status in no group')
    call check_int(42, i32, 'an absent value')
  end subroutine read_group

  subroutine write_group(group)
    type(c_ptr), intent(in) :: group
    integer(c_int) :: status, i32, count
    integer(c_int64_t) :: i64
    real(c_float) :: f32
    real(c_double) :: f64
    character(len=12) :: text
    integer(c_int), target :: i32s(4)
    integer(c_int64_t), target :: i64s(4)
    real(c_float), target :: f32s(4)
    real(c_double), target :: f64s(4)
    type(c_ptr) :: handle
    integer(c_int), target :: new_i32s(2)
    integer(c_int64_t), target :: new_i64s(2)
    real(c_float), target :: new_f32s(2)
    real(c_double), target :: new_f64s(2)
    type(c_ptr) :: made

    i32 = -7; i64 = -7; f32 = -7; f64 = -7; text = 'before'; count = -7
    i32s = -7; i64s = -7; f32s = -7; f64s = -7; handle = c_null_ptr

    new_i32s = [5, 6]; new_i64s = [7, 8]
    new_f32s = [0.5, 0.25]; new_f64s = [0.1_c_double, 0.2_c_double]

    call knl_seti32groupparameter(group, 'NEW I32', 4, -3, status)
    call check_int(1, status, 'status of setting NEW I32')
    call knl_geti32groupparameter(group, 'NEW I32', 4, i32, status)
    call check_int(-3, i32, 'NEW I32')
    call knl_seti64groupparameter(group, 'NEW I64', 4, -big, status)
    call check_int(1, status, 'status of setting NEW I64')
    call knl_geti64groupparameter(group, 'NEW I64', 4, i64, status)
    call check_long(-big, i64, 'NEW I64')
    call knl_setf32groupparameter(group, 'NEW F32', 4, 2.5, status)
    call check_int(1, status, 'status of setting NEW F32')
    call knl_getf32groupparameter(group, 'NEW F32', 4, f32, status)
    call check_real(2.5_c_double, real(f32, c_double), 'NEW F32')
    call knl_setf64groupparameter(group, 'NEW F64', 4, 0.2_c_double, status)
    call check_int(1, status, 'status of setting NEW F64')
    call knl_getf64groupparameter(group, 'NEW F64', 4, f64, status)
    call check_real(0.2_c_double, f64, 'NEW F64')
    call knl_setstrgroupparameter(group, 'NEW TEXT', 4, '  written  ', status)
    call check_int(1, status, 'status of setting NEW TEXT')
    call knl_getstrgroupparameter(group, 'NEW TEXT', 4, text, status)
    call check(text == 'written' .and. text(1:1) == 'w', 'NEW TEXT')
    call knl_seti32arraygroupparameter(group, 'NEW I32S', 4, c_loc(new_i32s), 2, status)
    call check_int(1, status, 'status of setting NEW I32S')
    call knl_geti32arraygroupparameter(group, 'NEW I32S', 4, c_loc(i32s), count, status)
    call check(count == 2 .and. all(i32s(:2) == new_i32s), 'NEW I32S')
    call knl_seti64arraygroupparameter(group, 'NEW I64S', 4, c_loc(new_i64s), 2, status)
    call check_int(1, status, 'status of setting NEW I64S')
    call knl_geti64arraygroupparameter(group, 'NEW I64S', 4, c_loc(i64s), count, status)
    call check(count == 2 .and. all(i64s(:2) == new_i64s), 'NEW I64S')
    call knl_setf32arraygroupparameter(group, 'NEW F32S', 4, c_loc(new_f32s), 2, status)
    call check_int(1, status, 'status of setting NEW F32S')
    call knl_getf32arraygroupparameter(group, 'NEW F32S', 4, c_loc(f32s), count, status)
    call check(count == 2 .and. all(f32s(:2) == new_f32s), 'NEW F32S')
    call knl_setf64arraygroupparameter(group, 'NEW F64S', 4, c_loc(new_f64s), 2, status)
    call check_int(1, status, 'status of setting NEW F64S')
    call knl_getf64arraygroupparameter(group, 'NEW F64S', 4, c_loc(f64s), count, status)
    call check(count == 2 .and. all(f64s(:2) == new_f64s), 'NEW F64S')
    call knl_getgroupparametersize(group, count, status)
    call check_int(4, count, 'size of the group with new rows')

    made = c_null_ptr
    call knl_setgrpgroupparameter(group, 'NEW GROUP', 4, made, status)
    call check_int(1, status, 'status of a new group')
    call check(c_associated(made), 'a new group')
    call knl_getgroupparametersize(made, count, status)
    call check_int(0, count, 'size of a new group')
    call knl_setgrpgroupparameter(group, 'NEW GROUP', 4, handle, status)
    call check(c_associated(handle, made), 'a new group is found again')
  end subroutine write_group

  subroutine read_library(library)
    type(c_ptr), intent(in) :: library
    integer(c_int) :: status, i32, count
    integer(c_int64_t) :: i64
    real(c_float) :: f32
    real(c_double) :: f64
    character(len=12) :: text
    integer(c_int), target :: i32s(4)
    integer(c_int64_t), target :: i64s(4)
    real(c_float), target :: f32s(4)
    real(c_double), target :: f64s(4)
    type(c_ptr) :: handle

    i32 = -7; i64 = -7; f32 = -7; f64 = -7; text = 'before'; count = -7
    i32s = -7; i64s = -7; f32s = -7; f64s = -7; handle = c_null_ptr

    call knl_getlibrarytype(library, i32, status)
    call check_int(0, status, 'status of a library type')
    call check_int(12, i32, 'type of a library')

    call knl_geti32libraryparameter(library, 'I32', i32, status)
    call check_int(1, status, 'status of I32')
    call check_int(42, i32, 'I32')
    call knl_geti64libraryparameter(library, 'I64', i64, status)
    call check_int(1, status, 'status of I64')
    call check_long(big, i64, 'I64')
    call knl_getf32libraryparameter(library, 'F32', f32, status)
    call check_int(1, status, 'status of F32')
    call check_real(1.5_c_double, real(f32, c_double), 'F32')
    call knl_getf64libraryparameter(library, 'F64', f64, status)
    call check_int(1, status, 'status of F64')
    call check_real(0.1_c_double, f64, 'F64')
    call knl_getstrlibraryparameter(library, 'TEXT', text, status)
    call check_int(1, status, 'status of TEXT')
    call check_text('some text', text, 'TEXT')
    call knl_geti32arraylibraryparameter(library, 'I32S', c_loc(i32s), count, status)
    call check_int(1, status, 'status of I32S')
    call check_int(3, count, 'count of I32S')
    call check(all(i32s == [1, -2, 3, -7]), 'I32S')
    call knl_geti64arraylibraryparameter(library, 'I64S', c_loc(i64s), count, status)
    call check_int(1, status, 'status of I64S')
    call check_int(2, count, 'count of I64S')
    call check(all(i64s == [big, -1_c_int64_t, -7_c_int64_t, -7_c_int64_t]), 'I64S')
    call knl_getf32arraylibraryparameter(library, 'F32S', c_loc(f32s), count, status)
    call check_int(1, status, 'status of F32S')
    call check_int(4, count, 'count of F32S')
    call check(all(f32s == [0.5, 1.5, 2.5, 3.5]), 'F32S')
    call knl_getf64arraylibraryparameter(library, 'F64S', c_loc(f64s), count, status)
    call check_int(1, status, 'status of F64S')
    call check_int(1, count, 'count of F64S')
    call check(all(f64s == [0.1_c_double, -7.0_c_double, -7.0_c_double, -7.0_c_double]), 'F64S')
    call knl_getgrouplibraryparameter(library, 'GROUP', handle, status)
    call check_int(1, status, 'status of GROUP')
    call knl_getgroupparametersize(handle, count, status)
    call check_int(1, count, 'size of the group of the library')
    call knl_getliblibraryparameter(library, 'OTHER', handle, status)
    call check_int(1, status, 'status of OTHER')
    i32 = -7
    call knl_getlibrarytype(handle, i32, status)
    call check_int(1, status, 'status of an unknown library type')
    call check_int(-7, i32, 'an unknown library type')

    call knl_geti32libraryparameter(library, 'NONE', i32, status)
    call check_int(0, status, 'status of an absent value')
    call check_int(-7, i32, 'an absent value')
    status = -7
    call knl_islibraryattributeexist(library, 'I32', status)
    call check_int(-7, status, 'a question that is never answered')
  end subroutine read_library

  subroutine write_library(library)
    type(c_ptr), intent(in) :: library
    integer(c_int) :: status, i32, count
    integer(c_int64_t) :: i64
    real(c_float) :: f32
    real(c_double) :: f64
    character(len=12) :: text
    integer(c_int), target :: i32s(4)
    integer(c_int64_t), target :: i64s(4)
    real(c_float), target :: f32s(4)
    real(c_double), target :: f64s(4)
    type(c_ptr) :: handle
    integer(c_int), target :: new_i32s(2)
    integer(c_int64_t), target :: new_i64s(2)
    real(c_float), target :: new_f32s(2)
    real(c_double), target :: new_f64s(2)
    type(c_ptr) :: made

    i32 = -7; i64 = -7; f32 = -7; f64 = -7; text = 'before'; count = -7
    i32s = -7; i64s = -7; f32s = -7; f64s = -7; handle = c_null_ptr

    new_i32s = [5, 6]; new_i64s = [7, 8]
    new_f32s = [0.5, 0.25]; new_f64s = [0.1_c_double, 0.2_c_double]

    call knl_seti32libraryparameter(library, 'NEW I32', -3, status)
    call check_int(1, status, 'status of setting NEW I32')
    call knl_geti32libraryparameter(library, 'NEW I32', i32, status)
    call check_int(-3, i32, 'NEW I32')
    call knl_seti64libraryparameter(library, 'NEW I64', -big, status)
    call check_int(1, status, 'status of setting NEW I64')
    call knl_geti64libraryparameter(library, 'NEW I64', i64, status)
    call check_long(-big, i64, 'NEW I64')
    call knl_setf32libraryparameter(library, 'NEW F32', 2.5, status)
    call check_int(1, status, 'status of setting NEW F32')
    call knl_getf32libraryparameter(library, 'NEW F32', f32, status)
    call check_real(2.5_c_double, real(f32, c_double), 'NEW F32')
    call knl_setf64libraryparameter(library, 'NEW F64', 0.2_c_double, status)
    call check_int(1, status, 'status of setting NEW F64')
    call knl_getf64libraryparameter(library, 'NEW F64', f64, status)
    call check_real(0.2_c_double, f64, 'NEW F64')
    call knl_setstringlibraryparameter(library, 'NEW TEXT', '  written  ', status)
    call check_int(1, status, 'status of setting NEW TEXT')
    call knl_getstrlibraryparameter(library, 'NEW TEXT', text, status)
    call check(text == 'written' .and. text(1:1) == 'w', 'NEW TEXT')
    call knl_seti32arraylibraryparameter(library, 'NEW I32S', c_loc(new_i32s), 2, status)
    call check_int(1, status, 'status of setting NEW I32S')
    call knl_geti32arraylibraryparameter(library, 'NEW I32S', c_loc(i32s), count, status)
    call check(count == 2 .and. all(i32s(:2) == new_i32s), 'NEW I32S')
    call knl_seti64arraylibraryparameter(library, 'NEW I64S', c_loc(new_i64s), 2, status)
    call check_int(1, status, 'status of setting NEW I64S')
    call knl_geti64arraylibraryparameter(library, 'NEW I64S', c_loc(i64s), count, status)
    call check(count == 2 .and. all(i64s(:2) == new_i64s), 'NEW I64S')
    call knl_setf32arraylibraryparameter(library, 'NEW F32S', c_loc(new_f32s), 2, status)
    call check_int(1, status, 'status of setting NEW F32S')
    call knl_getf32arraylibraryparameter(library, 'NEW F32S', c_loc(f32s), count, status)
    call check(count == 2 .and. all(f32s(:2) == new_f32s), 'NEW F32S')
    call knl_setf64arraylibraryparameter(library, 'NEW F64S', c_loc(new_f64s), 2, status)
    call check_int(1, status, 'status of setting NEW F64S')
    call knl_getf64arraylibraryparameter(library, 'NEW F64S', c_loc(f64s), count, status)
    call check(count == 2 .and. all(f64s(:2) == new_f64s), 'NEW F64S')

    made = c_null_ptr
    call knl_setgrplibraryparameter(library, 'NEW GROUP', made, status)
    call check_int(1, status, 'status of a new group')
    call check(c_associated(made), 'a new group')
    call knl_setgrplibraryparameter(library, 'NEW GROUP', handle, status)
    call check(c_associated(handle, made), 'a new group is found again')
  end subroutine write_library
end module parameter_checks

integer function preprocess()
  use, intrinsic :: iso_c_binding, only: c_null_char, c_ptr
  use parameter_checks
  implicit none
  type(c_ptr) :: group, library

  call read_module_parameters(group, library)
  call ask_for_absent_module_parameters()
  call read_group(group)
  call write_group(group)
  call read_library(library)
  call write_library(library)
  ! The job's test finds this option on the module.
  call knl_setmoduleprocessingoption('FORTRAN OPTION' // c_null_char, 17)
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
