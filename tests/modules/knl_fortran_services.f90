! The Fortran form, third part: memory and resources, files, messages and commands, pads,
! directories and date, metadata, called by their exported names without explicit interfaces (but
! for one, whose name is none of Fortran's). What the host sees of it is asserted in
! ModuleInterfaceJobTest.cpp.
include 'checks.inc'

module service_checks
  use, intrinsic :: iso_c_binding, only: c_associated, c_char, c_double, c_f_pointer, c_float, &
      c_int, c_int64_t, c_loc, c_null_char, c_null_ptr, c_ptr
  use checks
  implicit none
  private
  public :: allocate_and_free, zero_arrays, keep_resources, use_files, send_messages, draw
  public :: ask_for_directory_and_date, set_metadata, count_call, release_counter

  ! The kernel's record for an array, and behind it what it must not touch.
  type, bind(C) :: guarded_descriptor
    type(c_ptr) :: data
    integer(c_int64_t) :: dsize, offset, bordr, rank, rserv, extent, distance, lbound
    integer(c_int64_t) :: guard
  end type guarded_descriptor

  interface
    function open_file(file, flags, mode, unused, length) bind(C, name="knl_OpenFile")
      import :: c_char, c_int
      character(kind=c_char), intent(in) :: file(*)
      integer(c_int), intent(in) :: flags, mode, unused
      integer(c_int), value :: length
      integer(c_int) :: open_file
    end function open_file
  end interface

contains

  function fresh_descriptor() result(record)
    type(guarded_descriptor) :: record

    record = guarded_descriptor(c_null_ptr, -7, -7, -7, -7, -7, -7, -7, -7, -7)
  end function fresh_descriptor

  subroutine check_descriptor(found, width, extent, what)
    type(guarded_descriptor), intent(in) :: found
    integer(c_int), intent(in) :: width, extent
    character(len=*), intent(in) :: what

    call check(c_associated(found%data), what // ': address')
    call check(found%dsize == width .and. found%distance == width, what // ': bytes of an element')
    call check(found%offset == 0 .and. found%bordr == 3 .and. found%rank == 1 .and. &
        found%lbound == 1, what // ': constant words')
    call check_long(int(extent, c_int64_t), found%extent, what // ': extent')
    call check_long(-7_c_int64_t, found%rserv, what // ': reserved word')
    call check_long(-7_c_int64_t, found%guard, what // ': what lies behind it')
  end subroutine check_descriptor

  subroutine allocate_and_free()
    type(guarded_descriptor) :: block
    integer(c_int), pointer :: i32s(:)
    integer(c_int64_t), pointer :: i64s(:)
    real(c_float), pointer :: f32s(:)
    real(c_double), pointer :: f64s(:)
    character(kind=c_char), pointer :: characters(:)

    block = fresh_descriptor()
    call knl_allocatei32resource(block, 100)
    call check_descriptor(block, 4, 100, 'block of i32')
    call c_f_pointer(block%data, i32s, [block%extent])
    call check(all(i32s == 0), 'a new block of i32')
    i32s = 1
    call knl_freeresource(block)

    call knl_allocatei64resource(block, 3)
    call check_descriptor(block, 8, 3, 'block of i64')
    call c_f_pointer(block%data, i64s, [block%extent])
    call check(all(i64s == 0), 'a new block of i64')
    i64s = 1
    call knl_freeresource(block)

    call knl_allocatef32resource(block, 4)
    call check_descriptor(block, 4, 4, 'block of f32')
    call c_f_pointer(block%data, f32s, [block%extent])
    call check(all(f32s == 0), 'a new block of f32')
    f32s = 1
    call knl_freeresource(block)

    call knl_allocatef64resource(block, 5)
    call check_descriptor(block, 8, 5, 'block of f64')
    call c_f_pointer(block%data, f64s, [block%extent])
    call check(all(f64s == 0), 'a new block of f64')
    f64s = 1
    call knl_freeresource(block)

    call knl_allocatestrresource(block, 10, 3)
    call check_descriptor(block, 10, 3, 'block of texts')
    call c_f_pointer(block%data, characters, [block%extent * block%dsize])
    call check(all(characters == c_null_char), 'a new block of texts')
    characters = 'x'
    call knl_freeresource(block)

    ! More than there is: the host is told.
    call knl_allocatei32resource(block, -1)
    call check(.not. c_associated(block%data), 'a block that cannot be had')
    call check_long(-1_c_int64_t, block%extent, 'extent of a block that cannot be had')
    call knl_allocatestrresource(block, 10, -1)
    call check(.not. c_associated(block%data), 'a block of texts that cannot be had')
  end subroutine allocate_and_free

  subroutine zero_arrays()
    type(guarded_descriptor) :: empty

    empty = fresh_descriptor()
    call knl_zeroi32array(empty)
    call check_descriptor(empty, 4, 0, 'no i32')
    call knl_zeroi64array(empty)
    call check_descriptor(empty, 8, 0, 'no i64')
    call knl_zerof32array(empty)
    call check_descriptor(empty, 4, 0, 'no f32')
    call knl_zerof64array(empty)
    call check_descriptor(empty, 8, 0, 'no f64')
    call knl_zerostrarray(empty, 10)
    call check_descriptor(empty, 10, 0, 'no texts')
  end subroutine zero_arrays

  ! Resources of the host, and some of the module's own that it finds again in its later calls.
  subroutine keep_resources()
    type(guarded_descriptor) :: found, counter
    integer(c_int), pointer :: i32s(:)
    integer(c_int64_t), pointer :: i64s(:)
    real(c_float), pointer :: f32s(:)
    real(c_double), pointer :: f64s(:)
    character(kind=c_char), pointer :: characters(:)
    integer(c_int) :: status, state(2)

    found = fresh_descriptor()
    call knl_getmodulei32resource('NONE', found, status)
    call check_int(0, status, 'status of an absent resource')
    call check_long(-7_c_int64_t, found%extent, 'an absent resource')

    call knl_getmodulei32resource('HOST I32S', found, status)
    call check_int(1, status, 'status of HOST I32S')
    call check_descriptor(found, 4, 3, 'HOST I32S')
    call c_f_pointer(found%data, i32s, [found%extent])
    call check(all(i32s == [1, -2, 3]), 'HOST I32S')
    call knl_getmodulei64resource('HOST I64S', found, status)
    call check_int(1, status, 'status of HOST I64S')
    call check_descriptor(found, 8, 2, 'HOST I64S')
    call c_f_pointer(found%data, i64s, [found%extent])
    call check(all(i64s == [5_c_int64_t, -1_c_int64_t]), 'HOST I64S')
    call knl_getmodulef32resource('HOST F32S', found, status)
    call check_int(1, status, 'status of HOST F32S')
    call check_descriptor(found, 4, 2, 'HOST F32S')
    call c_f_pointer(found%data, f32s, [found%extent])
    call check(all(f32s == [0.5, 1.5]), 'HOST F32S')
    call knl_getmodulef64resource('HOST F64S', found, status)
    call check_int(1, status, 'status of HOST F64S')
    call check_descriptor(found, 8, 1, 'HOST F64S')
    call c_f_pointer(found%data, f64s, [found%extent])
    call check_real(0.1_c_double, f64s(1), 'HOST F64S')
    call knl_getmodulestrresource('HOST TEXTS', found, 4, status)
    call check_int(1, status, 'status of HOST TEXTS')
    call check_descriptor(found, 4, 2, 'HOST TEXTS')
    call c_f_pointer(found%data, characters, [8])
    call check(all(characters == ['a', 'b', 'c', ' ', 'd', ' ', ' ', ' ']), 'HOST TEXTS')

    ! The address of what is passed is kept, so that a pointer's target does.
    call knl_allocatei32resource(counter, 1)
    call c_f_pointer(counter%data, i32s, [counter%extent])
    call knl_setmoduleresource('COUNTER', i32s, 1, status)
    call check_int(1, status, 'status of keeping COUNTER')

    ! A copy of what is passed is kept.
    state = [11, 12]
    call knl_setmodulestructresource('STATE', state, 8, status)
    call check_int(1, status, 'status of keeping STATE')
    state = -7
    call knl_getmodulestructresource('NONE', state, status)
    call check_int(0, status, 'status of an absent STATE')
    call check(all(state == -7), 'an absent STATE')
    call knl_getmodulestructresource('STATE', state, status)
    call check_int(1, status, 'status of STATE')
    call check(all(state == [11, 12]), 'STATE')
  end subroutine keep_resources

  subroutine count_call()
    type(guarded_descriptor) :: found
    integer(c_int), pointer :: counter(:)
    integer(c_int) :: status, state(2)

    call knl_getmodulei32resource('COUNTER', found, status)
    call check_int(1, status, 'status of COUNTER')
    call c_f_pointer(found%data, counter, [found%extent])
    counter(1) = counter(1) + 1
    call knl_getmodulestructresource('STATE', state, status)
    call check(status == 1 .and. all(state == [11, 12]), 'STATE in a later call')
  end subroutine count_call

  subroutine release_counter()
    type(guarded_descriptor) :: found
    integer(c_int), pointer :: counter(:)
    integer(c_int) :: status

    call knl_getmodulei32resource('COUNTER', found, status)
    call c_f_pointer(found%data, counter, [found%extent])
    call check_int(2, counter(1), 'calls of process')
    call knl_freeresource(found)
  end subroutine release_counter

  ! In the scratch directory of the job.
  subroutine use_files()
    character(len=256) :: path
    integer(c_int) :: unit

    path = ' '
    call knl_getscratchdir(path)
    call check(path /= ' ', 'the scratch directory')
    path = trim(path) // '/knl_fortran_services.txt'
    call knl_fileopen(path, unit)
    call check_int(-1, unit, 'unit of a file that does not exist')
    call knl_filecreate(path, unit)
    call check(unit >= 0, 'unit of a new file')
    call knl_fileclose(unit)
    call knl_fileopen(path, unit)
    call check(unit >= 0, 'unit of the file')
    call knl_fileclose(unit)
    unit = open_file(trim(path) // c_null_char, 0, 0, -7, 0)
    call check(unit >= 0, 'unit of the file, opened with flags')
    call knl_fileclose(unit)
    unit = open_file(trim(path) // '.none' // c_null_char, 0, 0, -7, 0)
    call check_int(-1, unit, 'unit of a file that does not exist, opened with flags')
    open (newunit=unit, file=path)
    close (unit, status='delete')
  end subroutine use_files

  subroutine send_messages()
    call knl_sendmessage(0, '  from Fortran  ')
    call knl_addi32messageargument(-42)
    call knl_addi64messageargument(1099511627776_c_int64_t)
    call knl_addf32messageargument(1.5)
    call knl_addf64messageargument(0.25_c_double)
    call knl_addstrmessageargument('some text   ')
    call knl_execapplicmd('show f.sgy ')
  end subroutine send_messages

  subroutine draw()
    integer(c_int) :: pad

    pad = -7
    call knl_createpad(pad, 1, 2, 'Fortran pad ')
    call check(pad >= 0, 'a pad')
    call knl_plot(pad, 1.5, 2.5, 3)
    call knl_number(pad, 1.0, 2.0, 0.5, 3.25, 90.0, 4)
    call knl_symbol(pad, 1.0, 2.0, 0.5, 'label', 7, 45.0, 5)
    call knl_factor(pad, 0.75)
    call knl_newpen(pad, 6)
  end subroutine draw

  subroutine ask_for_directory_and_date()
    character(len=12) :: date, expected
    character(len=3) :: start
    character(len=256) :: directory
    integer(c_int) :: cancelled
    integer :: now(8)

    cancelled = -7
    call knl_iscancelled(cancelled)
    call check(cancelled == 0, 'a job that goes on')
    call date_and_time(values=now)
    write (expected, '(i0,a,i0,a,i0)') now(3), '.', now(2) - 1, '.', now(1) - 1900
    call knl_date(date)
    call check_text(expected, date, 'the date')
    call knl_getscratchdir(directory)
    call knl_getscratchdir(start)
    call check_text(directory(:3), start, 'the start of the scratch directory')
  end subroutine ask_for_directory_and_date

  subroutine set_metadata()
    call knl_setmetadatavalue(0, ' job key ', ' a value ')
    call knl_setmetadatavaluen(1, 'module key', 'abcdef', 3)
    call knl_setmetadatavaluen(1, 'whole key', 'abcdef', 99)
  end subroutine set_metadata
end module service_checks

integer function preprocess()
  use service_checks
  implicit none

  call allocate_and_free()
  call zero_arrays()
  call keep_resources()
  call use_files()
  call send_messages()
  call draw()
  call ask_for_directory_and_date()
  call set_metadata()
  preprocess = 0
end function preprocess

integer function process()
  use service_checks, only: count_call
  implicit none

  call count_call()
  process = 0
end function process

integer function postprocess()
  use checks, only: report_checks
  use service_checks, only: release_counter
  implicit none

  call release_counter()
  call report_checks()
  postprocess = 0
end function postprocess
