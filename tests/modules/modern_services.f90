! The module vorn_knl, third part: resources, memory and files, messages and commands, pads,
! directories and date, metadata. What the host sees of it is asserted in ModuleInterfaceJobTest.cpp.
include 'checks.inc'

module modern_service_checks
  use, intrinsic :: iso_c_binding, only: c_char, c_double, c_float, c_int, c_int64_t, c_loc, &
      c_null_char, c_sizeof
  use checks
  use vorn_knl
  implicit none
  private
  public :: allocate_and_free, zero_arrays, keep_resources, use_files, send_messages, draw
  public :: ask_for_directories_and_date, set_metadata, count_call, release_counter

  type, bind(C) :: state_type
    integer(c_int) :: calls
    real(c_double) :: factor
  end type state_type

contains

  subroutine allocate_and_free()
    integer(c_int), pointer :: i32s(:)
    integer(c_int64_t), pointer :: i64s(:)
    real(c_float), pointer :: f32s(:)
    real(c_double), pointer :: f64s(:)
    character(len=10), pointer :: texts(:)

    call knl_allocate_resource(i32s, 100)
    call check(size(i32s) == 100 .and. lbound(i32s, 1) == 1, 'bounds of a new block of i32')
    call check(all(i32s == 0), 'a new block of i32')
    i32s = 1
    call knl_free_resource(i32s)
    call check(.not. associated(i32s), 'a block of i32 that was released')
    call knl_free_resource(i32s) ! a null pointer holds nothing

    call knl_allocate_resource(i64s, 3)
    call check(size(i64s) == 3 .and. all(i64s == 0), 'a new block of i64')
    call knl_free_resource(i64s)
    call check(.not. associated(i64s), 'a block of i64 that was released')
    call knl_allocate_resource(f32s, 4)
    call check(size(f32s) == 4 .and. all(f32s == 0), 'a new block of f32')
    call knl_free_resource(f32s)
    call check(.not. associated(f32s), 'a block of f32 that was released')
    call knl_allocate_resource(f64s, 5)
    call check(size(f64s) == 5 .and. all(f64s == 0), 'a new block of f64')
    call knl_free_resource(f64s)
    call check(.not. associated(f64s), 'a block of f64 that was released')

    call knl_allocate_resource(texts, 3)
    call check(size(texts) == 3 .and. all(texts == repeat(c_null_char, 10)), 'a new block of texts')
    texts = ['first     ', 'second    ', 'third     ']
    call check_text('second', texts(2), 'a text of a block')
    call knl_free_resource(texts)
    call check(.not. associated(texts), 'a block of texts that was released')

    call knl_allocate_resource(f64s, 0)
    call check(associated(f64s) .and. size(f64s) == 0, 'a block of nothing')
    call knl_allocate_resource(f64s, -1) ! and the host is told
    call check(.not. associated(f64s), 'a block that cannot be had')
    call knl_allocate_resource(texts, -1)
    call check(.not. associated(texts), 'a block of texts that cannot be had')
  end subroutine allocate_and_free

  subroutine zero_arrays()
    integer(c_int), pointer :: i32s(:)
    integer(c_int64_t), pointer :: i64s(:)
    real(c_float), pointer :: f32s(:)
    real(c_double), pointer :: f64s(:)
    character(len=10), pointer :: texts(:)

    call knl_zero_array(i32s)
    call check(associated(i32s) .and. size(i32s) == 0, 'no i32')
    call knl_zero_array(i64s)
    call check(associated(i64s) .and. size(i64s) == 0, 'no i64')
    call knl_zero_array(f32s)
    call check(associated(f32s) .and. size(f32s) == 0, 'no f32')
    call knl_zero_array(f64s)
    call check(associated(f64s) .and. size(f64s) == 0, 'no f64')
    call knl_zero_array(texts)
    call check(associated(texts) .and. size(texts) == 0, 'no texts')
    call knl_free_resource(i32s)
    call check(.not. associated(i32s), 'no i32 that were released')
  end subroutine zero_arrays

  ! Resources of the host, and some of the module's own that it finds again in its later calls.
  subroutine keep_resources()
    integer(c_int), pointer :: i32s(:), counter(:)
    integer(c_int64_t), pointer :: i64s(:)
    real(c_float), pointer :: f32s(:)
    real(c_double), pointer :: f64s(:)
    character(len=4), pointer :: texts(:)
    type(state_type), target :: state
    integer(c_int) :: status
    logical :: found

    nullify (i32s)
    call knl_get_module_resource('NONE', i32s, found)
    call check(.not. found .and. .not. associated(i32s), 'an absent resource')
    call knl_get_module_resource('HOST I32S', i32s, found)
    call check_int(3, size(i32s, kind=c_int), 'size of HOST I32S')
    call check(found .and. all(i32s == [1, -2, 3]), 'HOST I32S')
    call knl_get_module_resource('HOST I64S', i64s, found)
    call check(found .and. all(i64s == [5_c_int64_t, -1_c_int64_t]), 'HOST I64S')
    call knl_get_module_resource('HOST F32S', f32s, found)
    call check(found .and. all(f32s == [0.5, 1.5]), 'HOST F32S')
    call knl_get_module_resource('HOST F64S', f64s, found)
    call check_real(0.1_c_double, f64s(1), 'HOST F64S')
    call knl_get_module_resource('HOST TEXTS', texts, found)
    call check(found .and. all(texts == ['abc ', 'd   ']), 'HOST TEXTS')

    call knl_allocate_resource(counter, 1)
    call knl_set_module_resource('COUNTER', counter, status)
    call check_int(1, status, 'status of keeping COUNTER')
    call knl_set_module_resource('I64S AGAIN', i64s, status)
    call knl_get_module_resource('I64S AGAIN', i64s, found)
    call check(found .and. all(i64s == [5_c_int64_t, -1_c_int64_t]), 'I64S AGAIN')
    call knl_set_module_resource('F32S AGAIN', f32s, status)
    call knl_get_module_resource('F32S AGAIN', f32s, found)
    call check(found .and. all(f32s == [0.5, 1.5]), 'F32S AGAIN')
    call knl_set_module_resource('F64S AGAIN', f64s, status)
    call knl_get_module_resource('F64S AGAIN', f64s, found)
    call check(found .and. size(f64s) == 1, 'F64S AGAIN')
    call knl_set_module_resource('TEXTS AGAIN', texts, status)
    call knl_get_module_resource('TEXTS AGAIN', texts, found)
    call check(found .and. all(texts == ['abc ', 'd   ']), 'TEXTS AGAIN')

    state = state_type(11, 0.5_c_double)
    call knl_set_module_struct_resource('STATE', c_loc(state), int(c_sizeof(state), c_int), &
        status)
    call check_int(1, status, 'status of keeping STATE')
    state = state_type(-7, -7.0_c_double)
    call knl_get_module_struct_resource('NONE', c_loc(state), found)
    call check(.not. found .and. state%calls == -7, 'an absent STATE')
  end subroutine keep_resources

  subroutine count_call()
    integer(c_int), pointer :: counter(:)
    type(state_type), target :: state
    logical :: found

    call knl_get_module_resource('COUNTER', counter, found)
    call check(found, 'COUNTER is found')
    counter(1) = counter(1) + 1
    call knl_get_module_struct_resource('STATE', c_loc(state), found)
    call check(found .and. state%calls == 11, 'STATE is found')
    call check_real(0.5_c_double, state%factor, 'factor of STATE')
  end subroutine count_call

  subroutine release_counter()
    integer(c_int), pointer :: counter(:)
    logical :: found

    call knl_get_module_resource('COUNTER', counter, found)
    call check_int(2, counter(1), 'calls of process')
    call knl_free_resource(counter)
  end subroutine release_counter

  ! In the scratch directory of the job.
  subroutine use_files()
    character(len=256) :: path
    integer(c_int) :: unit

    call knl_get_scratch_dir(path)
    path = trim(path) // '/modern_services.txt'
    call knl_file_open(path, unit)
    call check_int(-1, unit, 'unit of a file that does not exist')
    call knl_file_create(path, unit)
    call check(unit >= 0, 'unit of a new file')
    call knl_file_close(unit)
    call knl_file_open(path, unit)
    call check(unit >= 0, 'unit of the file')
    call knl_file_close(unit)
    call knl_open_file(path, 0, 0, unit)
    call check(unit >= 0, 'unit of the file, opened with flags')
    call knl_file_close(unit)
    call knl_open_file(trim(path) // '.none', 0, 0, unit)
    call check_int(-1, unit, 'unit of a file that does not exist, opened with flags')
    open (newunit=unit, file=path)
    close (unit, status='delete')
  end subroutine use_files

  subroutine send_messages()
    call knl_send_message(knl_message_detail, 'from modern Fortran  ')
    call knl_add_message_argument(-42)
    call knl_add_message_argument(1099511627776_c_int64_t)
    call knl_add_message_argument(1.5)
    call knl_add_message_argument(0.25_c_double)
    call knl_add_message_argument('some text   ')
    call knl_exec_appli_cmd('show m.sgy ')
  end subroutine send_messages

  subroutine draw()
    integer(c_int) :: pad

    call knl_create_pad(pad, 1, 2, 'modern pad ')
    call check(pad >= 0, 'a pad')
    call knl_plot(pad, 1.5, 2.5, 3)
    call knl_number(pad, 1.0, 2.0, 0.5, 3.25, 90.0, 4)
    call knl_symbol(pad, 1.0, 2.0, 0.5, 'label', 7, 45.0, 5)
    call knl_factor(pad, 0.75)
    call knl_newpen(pad, 6)
  end subroutine draw

  subroutine ask_for_directories_and_date()
    character(len=12) :: date, expected
    character(len=256) :: directory, again
    integer(c_int) :: cancelled
    integer :: now(8)

    cancelled = -7
    call knl_is_cancelled(cancelled)
    call check(cancelled == 0, 'a job that goes on')
    call date_and_time(values=now)
    write (expected, '(i0,a,i0,a,i0)') now(3), '.', now(2) - 1, '.', now(1) - 1900
    call knl_date(date)
    call check_text(expected, date, 'the date')
    call knl_get_scratch_dir(directory)
    call knl_set_project_dir(directory)
    call knl_get_project_dir(again)
    call check_text(directory, again, 'the project directory')
    call knl_get_project_dir(again(:3))
    call check_text(directory, again, 'the start of the project directory')
  end subroutine ask_for_directories_and_date

  subroutine set_metadata()
    character(len=12) :: value
    integer(c_int) :: length

    call knl_set_metadata_value(0, ' job key ', ' a value ')
    call knl_set_metadata_value(1, 'module key', 'abcdef', 3)
    call knl_set_metadata_value(1, 'whole key', 'abcdef', 99)
    call knl_get_metadata_value(0, 'job key', value, length)
    call check_int(7, length, 'length of a value')
    call check_text('a value', value, 'a value')
    call knl_get_metadata_value(0, 'job key', value(:3), length)
    call check(length == 7 .and. value == 'a v' // 'alue', 'a value that is cut')
    call knl_get_metadata_value(1, 'none', value, length)
    call check(length == 0 .and. value == ' ', 'an absent value')
  end subroutine set_metadata
end module modern_service_checks

integer function preprocess()
  use modern_service_checks
  implicit none

  call allocate_and_free()
  call zero_arrays()
  call keep_resources()
  call use_files()
  call send_messages()
  call draw()
  call ask_for_directories_and_date()
  call set_metadata()
  preprocess = 0
end function preprocess

integer function process()
  use modern_service_checks, only: count_call
  implicit none

  call count_call()
  process = 0
end function process

integer function postprocess()
  use checks, only: report_checks
  use modern_service_checks, only: release_counter
  implicit none

  call release_counter()
  call report_checks()
  postprocess = 0
end function postprocess
