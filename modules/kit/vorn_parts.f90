! What a module in Fortran has gathered, in a file: for jobs that run in parts. A part is a process that
! runs modules of the job on a range of the traces. In place of `finish` it calls `save_part`, by which
! the module writes what it has gathered. A last process, the merge, prepares all modules, calls
! `merge_part` for each of these files in the order of the parts, and then `finish`, which reports on
! all traces.
!
!     subroutine save_part(state, file, good)
!       class(count_state), intent(inout) :: state
!       type(vorn_state_file), intent(inout) :: file
!       logical, intent(inout) :: good
!
!       call vorn_put(file, state%traces)
!     end subroutine save_part
!
!     subroutine merge_part(state, file, good)
!       class(count_state), intent(inout) :: state
!       type(vorn_state_file), intent(inout) :: file
!       logical, intent(inout) :: good
!       integer(c_int64_t) :: traces
!
!       call vorn_get(file, traces, good)
!       if (good) state%traces = state%traces + traces
!     end subroutine merge_part
!
! Both override procedures of vorn_module. Merging is as if the traces of the part had just been
! processed. What is reported must not depend on where the parts begin: sums of reals do, sums of
! integers do not.
!
! A file is read by the version of the module that has written it, on a machine of the same type. It is
! complete and undamaged when merge_part is called: other files are refused before. It is held in memory
! as a whole.
module vorn_parts
  use, intrinsic :: iso_c_binding, only: c_associated, c_char, c_double, c_f_pointer, c_int, &
      c_int32_t, c_int64_t, c_int8_t, c_null_char, c_ptr, c_size_t
  implicit none
  private

  !> A file of a state; `vorn_put` and `vorn_get` write and read it item by item.
  type, public :: vorn_state_file
    private
    integer(c_int8_t), allocatable :: bytes(:) ! with the header
    integer(c_int64_t) :: used = 0             ! bytes that have been written
    integer(c_int64_t) :: next = 0             ! the byte before the one that is read next
    character(len=:), allocatable :: problem   ! the first failure
  end type vorn_state_file

  !> Writes one item: a 32-bit or 64-bit integer, a double precision number, a logical, a text, or an
  !> array of integers of 64 bits or of double precision numbers.
  interface vorn_put
    module procedure put_int, put_int64, put_double, put_logical, put_text, put_int64s, put_doubles
  end interface vorn_put

  !> Reads the next item, which must be of the type that was written; arrays and texts get its size.
  !> `good` is false where it is not; then, nothing has changed, and the file will be refused.
  interface vorn_get
    module procedure get_int, get_int64, get_double, get_logical, get_text, get_int64s, get_doubles
  end interface vorn_get

  public :: vorn_put, vorn_get
  ! For the entry points.
  public :: vorn_begin_state, vorn_write_state, vorn_read_state, vorn_end_state, vorn_state_problem

  ! A file is a header and items. The header is that of vorn_parts.h: the word of 8 bytes, the version of
  ! the layout, a number that shows the order of bytes, the size of the file, a checksum of what follows,
  ! and the name of the module. What follows has a layout of its own.
  character(len=8), parameter :: magic = 'VORNPART'
  integer(c_int32_t), parameter :: version = 1, order = 16909060
  integer, parameter :: name_bytes = 64
  integer, parameter :: header_bytes = 32 + name_bytes
  ! Kinds of items, each followed by the number of its elements.
  integer(c_int64_t), parameter :: ints = 1, doubles = 2, texts = 3

  ! Checksums are polynomials of the bytes, modulo a prime: one byte that has changed is always found.
  integer(c_int64_t), parameter :: prime = 2147483647_c_int64_t
  integer(c_int64_t), parameter :: multipliers(2) = [1103515245_c_int64_t, 69069069_c_int64_t]

  ! Of the C library: Fortran does not say that a disk is full.
  interface
    type(c_ptr) function c_fopen(path, mode) bind(C, name='fopen')
      import :: c_char, c_ptr
      character(kind=c_char), intent(in) :: path(*), mode(*)
    end function c_fopen
    integer(c_size_t) function c_fwrite(bytes, size, count, file) bind(C, name='fwrite')
      import :: c_int8_t, c_ptr, c_size_t
      integer(c_int8_t), intent(in) :: bytes(*)
      integer(c_size_t), value :: size, count
      type(c_ptr), value :: file
    end function c_fwrite
    integer(c_size_t) function c_fread(bytes, size, count, file) bind(C, name='fread')
      import :: c_int8_t, c_ptr, c_size_t
      integer(c_int8_t), intent(out) :: bytes(*)
      integer(c_size_t), value :: size, count
      type(c_ptr), value :: file
    end function c_fread
    integer(c_int) function c_fclose(file) bind(C, name='fclose')
      import :: c_int, c_ptr
      type(c_ptr), value :: file
    end function c_fclose
    integer(c_int) function c_remove(path) bind(C, name='remove')
      import :: c_char, c_int
      character(kind=c_char), intent(in) :: path(*)
    end function c_remove
    type(c_ptr) function c_errno() bind(C, name='__errno_location')
      import :: c_ptr
    end function c_errno
    type(c_ptr) function c_strerror(number) bind(C, name='strerror')
      import :: c_int, c_ptr
      integer(c_int), value :: number
    end function c_strerror
    integer(c_size_t) function c_strlen(text) bind(C, name='strlen')
      import :: c_ptr, c_size_t
      type(c_ptr), value :: text
    end function c_strlen
  end interface

contains

  ! ---- The file as a whole. What is wrong is in vorn_state_problem. ----

  !> Begins a file without items.
  subroutine vorn_begin_state(file)
    type(vorn_state_file), intent(out) :: file

    allocate (file%bytes(4096))
    file%bytes = 0
    file%used = header_bytes
  end subroutine vorn_begin_state

  !> Writes the file for the module `name` to `path`; what has been written is removed after a failure.
  subroutine vorn_write_state(file, path, name, good)
    type(vorn_state_file), intent(inout) :: file
    character(len=*), intent(in) :: path, name
    logical, intent(out) :: good
    type(c_ptr) :: stream
    integer(c_size_t) :: bytes
    integer(c_int) :: status

    good = .false.
    if (allocated(file%problem)) return
    call fill_header(file, name)
    stream = c_fopen(path // c_null_char, 'wb' // c_null_char)
    if (.not. c_associated(stream)) then
      file%problem = last_error()
      return
    end if
    bytes = int(file%used, c_size_t)
    if (c_fwrite(file%bytes, 1_c_size_t, bytes, stream) /= bytes) file%problem = last_error()
    if (c_fclose(stream) /= 0 .and. .not. allocated(file%problem)) file%problem = last_error()
    good = .not. allocated(file%problem)
    if (.not. good) status = c_remove(path // c_null_char)
  end subroutine vorn_write_state

  !> Reads the file of the module `name` from `path`, and checks all of it.
  subroutine vorn_read_state(file, path, name, good)
    type(vorn_state_file), intent(out) :: file
    character(len=*), intent(in) :: path, name
    logical, intent(out) :: good
    type(c_ptr) :: stream
    integer(c_int8_t) :: block(8192)
    integer(c_size_t) :: got
    integer(c_int) :: status

    good = .false.
    stream = c_fopen(path // c_null_char, 'rb' // c_null_char)
    if (.not. c_associated(stream)) then
      file%problem = last_error()
      return
    end if
    allocate (file%bytes(size(block)))
    do
      got = c_fread(block, 1_c_size_t, size(block, kind=c_size_t), stream)
      if (got == 0) exit
      call append(file, block(:got))
    end do
    status = c_fclose(stream)
    file%next = header_bytes
    call check_header(file, name)
    good = .not. allocated(file%problem)
  end subroutine vorn_read_state

  !> What the C library says about its last failure.
  function last_error() result(text)
    character(len=:), allocatable :: text
    integer(c_int), pointer :: number
    character(kind=c_char), pointer :: bytes(:)
    type(c_ptr) :: address
    integer :: i

    call c_f_pointer(c_errno(), number)
    address = c_strerror(number)
    call c_f_pointer(address, bytes, [int(c_strlen(address))])
    text = repeat(' ', size(bytes))
    do i = 1, size(bytes)
      text(i:i) = bytes(i)
    end do
  end function last_error

  !> After merge_part: whether everything has been read.
  subroutine vorn_end_state(file, good)
    type(vorn_state_file), intent(inout) :: file
    logical, intent(inout) :: good

    if (file%next < file%used .and. .not. allocated(file%problem)) &
        file%problem = 'it holds more values than the module has saved'
    good = .not. allocated(file%problem)
  end subroutine vorn_end_state

  !> What was wrong at first; empty where nothing was.
  function vorn_state_problem(file) result(problem)
    type(vorn_state_file), intent(in) :: file
    character(len=:), allocatable :: problem

    problem = ''
    if (allocated(file%problem)) problem = file%problem
  end function vorn_state_problem

  subroutine fill_header(file, name)
    type(vorn_state_file), intent(inout) :: file
    character(len=*), intent(in) :: name
    character(len=name_bytes) :: padded

    padded = name // repeat(c_null_char, name_bytes)
    file%bytes(1:8) = transfer(magic, file%bytes, 8)
    file%bytes(9:16) = transfer([version, order], file%bytes, 8)
    file%bytes(17:24) = transfer(file%used, file%bytes, 8)
    file%bytes(33:header_bytes) = transfer(padded, file%bytes, name_bytes)
    file%bytes(25:32) = transfer(checksum(file), file%bytes, 8)
  end subroutine fill_header

  subroutine check_header(file, name)
    type(vorn_state_file), intent(inout) :: file
    character(len=*), intent(in) :: name
    character(len=8) :: word
    character(len=name_bytes) :: padded, saved
    character(len=11) :: digits
    integer(c_int32_t) :: numbers(2)

    if (allocated(file%problem)) return
    if (file%used < header_bytes) then
      file%problem = 'it is truncated within its header'
      return
    end if
    word = transfer(file%bytes(1:8), word)
    numbers = transfer(file%bytes(9:16), numbers)
    padded = name // repeat(c_null_char, name_bytes)
    saved = transfer(file%bytes(33:header_bytes), saved)
    if (word /= magic) then
      file%problem = 'it does not begin as a saved state does'
    else if (numbers(2) /= order) then
      file%problem = 'a machine of another byte order has written it'
    else if (saved /= padded) then
      file%problem = 'it is of the module ' // saved(:index(saved // c_null_char, c_null_char) - 1) // &
          ', and this one is ' // name
    else if (numbers(1) /= version) then
      write (digits, '(i0)') numbers(1)
      file%problem = 'it has version ' // trim(digits) // ', and this version of the module reads ' // &
          'version 1'
    else if (transfer(file%bytes(17:24), file%used) /= file%used) then
      file%problem = 'it is truncated or too long'
    else if (transfer(file%bytes(25:32), file%used) /= checksum(file)) then
      file%problem = 'it is damaged; its checksum differs'
    end if
  end subroutine check_header

  ! Both polynomials in one number.
  integer(c_int64_t) function checksum(file)
    type(vorn_state_file), intent(in) :: file
    integer(c_int64_t) :: i, sums(2)

    sums = 1
    do i = 33, file%used
      sums = modulo(sums * multipliers + file%bytes(i), prime)
    end do
    checksum = sums(1) * prime + sums(2)
  end function checksum

  ! ---- Items ----

  subroutine put_bytes(file, kind, count, bytes)
    type(vorn_state_file), intent(inout) :: file
    integer(c_int64_t), intent(in) :: kind, count
    integer(c_int8_t), intent(in) :: bytes(:)

    call append(file, transfer([kind, count], bytes, 16))
    call append(file, bytes)
  end subroutine put_bytes

  subroutine append(file, bytes)
    type(vorn_state_file), intent(inout) :: file
    integer(c_int8_t), intent(in) :: bytes(:)
    integer(c_int8_t), allocatable :: larger(:)
    integer(c_int64_t) :: needed
    integer :: status

    if (allocated(file%problem)) return
    needed = file%used + size(bytes, kind=c_int64_t)
    if (needed > size(file%bytes, kind=c_int64_t)) then
      allocate (larger(2 * needed), stat=status)
      if (status /= 0) then
        file%problem = 'there is not enough memory for it'
        return
      end if
      larger(:file%used) = file%bytes(:file%used)
      call move_alloc(larger, file%bytes)
    end if
    file%bytes(file%used + 1:needed) = bytes
    file%used = needed
  end subroutine append

  !> Where the bytes of the next item are, which must be of `kind`.
  subroutine next_item(file, kind, bytes_each, first, count, good)
    type(vorn_state_file), intent(inout) :: file
    integer(c_int64_t), intent(in) :: kind
    integer(c_int64_t), intent(in) :: bytes_each
    integer(c_int64_t), intent(out) :: first, count
    logical, intent(inout) :: good
    integer(c_int64_t) :: left, found(2)

    first = 1
    count = 0
    good = good .and. .not. allocated(file%problem)
    if (.not. good) return
    left = file%used - file%next - 16
    good = left >= 0
    if (.not. good) then
      file%problem = 'it ends before the module''s state does'
      return
    end if
    found = transfer(file%bytes(file%next + 1:file%next + 16), found)
    good = found(1) == kind .and. found(2) >= 0 .and. found(2) <= left / bytes_each
    if (.not. good) then
      file%problem = 'it holds other values than the module has saved'
      return
    end if
    first = file%next + 17
    count = found(2)
    file%next = file%next + 16 + count * bytes_each
  end subroutine next_item

  subroutine put_int64s(file, values)
    type(vorn_state_file), intent(inout) :: file
    integer(c_int64_t), intent(in) :: values(:)

    call put_bytes(file, ints, size(values, kind=c_int64_t), &
        transfer(values, file%bytes, 8 * size(values)))
  end subroutine put_int64s

  subroutine put_doubles(file, values)
    type(vorn_state_file), intent(inout) :: file
    real(c_double), intent(in) :: values(:)

    call put_bytes(file, doubles, size(values, kind=c_int64_t), &
        transfer(values, file%bytes, 8 * size(values)))
  end subroutine put_doubles

  subroutine put_int64(file, value)
    type(vorn_state_file), intent(inout) :: file
    integer(c_int64_t), intent(in) :: value

    call put_int64s(file, [value])
  end subroutine put_int64

  subroutine put_int(file, value)
    type(vorn_state_file), intent(inout) :: file
    integer(c_int), intent(in) :: value

    call put_int64s(file, [int(value, c_int64_t)])
  end subroutine put_int

  subroutine put_double(file, value)
    type(vorn_state_file), intent(inout) :: file
    real(c_double), intent(in) :: value

    call put_doubles(file, [value])
  end subroutine put_double

  subroutine put_logical(file, value)
    type(vorn_state_file), intent(inout) :: file
    logical, intent(in) :: value

    call put_int64s(file, [merge(1_c_int64_t, 0_c_int64_t, value)])
  end subroutine put_logical

  subroutine put_text(file, value)
    type(vorn_state_file), intent(inout) :: file
    character(len=*), intent(in) :: value

    call put_bytes(file, texts, len(value, c_int64_t), transfer(value, file%bytes, len(value)))
  end subroutine put_text

  subroutine get_int64s(file, values, good)
    type(vorn_state_file), intent(inout) :: file
    integer(c_int64_t), allocatable, intent(inout) :: values(:)
    logical, intent(inout) :: good
    integer(c_int64_t) :: first, count

    call next_item(file, ints, 8_c_int64_t, first, count, good)
    if (.not. good) return
    if (allocated(values)) deallocate (values)
    allocate (values(count))
    values = transfer(file%bytes(first:first + 8 * count - 1), values, int(count))
  end subroutine get_int64s

  subroutine get_doubles(file, values, good)
    type(vorn_state_file), intent(inout) :: file
    real(c_double), allocatable, intent(inout) :: values(:)
    logical, intent(inout) :: good
    integer(c_int64_t) :: first, count

    call next_item(file, doubles, 8_c_int64_t, first, count, good)
    if (.not. good) return
    if (allocated(values)) deallocate (values)
    allocate (values(count))
    values = transfer(file%bytes(first:first + 8 * count - 1), values, int(count))
  end subroutine get_doubles

  !> One element of a kind of 8 bytes.
  subroutine get_one(file, kind, first, good)
    type(vorn_state_file), intent(inout) :: file
    integer(c_int64_t), intent(in) :: kind
    integer(c_int64_t), intent(out) :: first
    logical, intent(inout) :: good
    integer(c_int64_t) :: count

    call next_item(file, kind, 8_c_int64_t, first, count, good)
    if (.not. good .or. count == 1) return
    good = .false.
    file%problem = 'it holds other values than the module has saved'
  end subroutine get_one

  subroutine get_int64(file, value, good)
    type(vorn_state_file), intent(inout) :: file
    integer(c_int64_t), intent(inout) :: value
    logical, intent(inout) :: good
    integer(c_int64_t) :: first

    call get_one(file, ints, first, good)
    if (good) value = transfer(file%bytes(first:first + 7), value)
  end subroutine get_int64

  subroutine get_int(file, value, good)
    type(vorn_state_file), intent(inout) :: file
    integer(c_int), intent(inout) :: value
    logical, intent(inout) :: good
    integer(c_int64_t) :: one

    one = 0
    call get_int64(file, one, good)
    if (.not. good) return
    good = abs(one) <= huge(value)
    if (good) then
      value = int(one, c_int)
    else
      file%problem = 'it holds other values than the module has saved'
    end if
  end subroutine get_int

  subroutine get_double(file, value, good)
    type(vorn_state_file), intent(inout) :: file
    real(c_double), intent(inout) :: value
    logical, intent(inout) :: good
    integer(c_int64_t) :: first

    call get_one(file, doubles, first, good)
    if (good) value = transfer(file%bytes(first:first + 7), value)
  end subroutine get_double

  subroutine get_logical(file, value, good)
    type(vorn_state_file), intent(inout) :: file
    logical, intent(inout) :: value
    logical, intent(inout) :: good
    integer(c_int64_t) :: one

    one = 0
    call get_int64(file, one, good)
    if (good) value = one /= 0
  end subroutine get_logical

  subroutine get_text(file, value, good)
    type(vorn_state_file), intent(inout) :: file
    character(len=:), allocatable, intent(inout) :: value
    logical, intent(inout) :: good
    integer(c_int64_t) :: first, count

    call next_item(file, texts, 1_c_int64_t, first, count, good)
    if (.not. good) return
    value = repeat(' ', int(count))
    if (count > 0) value = transfer(file%bytes(first:first + count - 1), value)
  end subroutine get_text

end module vorn_parts
