! Tests of a processing module in Fortran programs: one module runs alone in a real job, on traces from
! arrays. The functions are those of vorn_module_test.h, which explains them.
!
!     program gain_test
!       use vorn_module_test
!       implicit none
!       type(vorn_test) :: test
!
!       call vorn_test_open(test, 'gain')
!       call vorn_test_set(test, 'factor', 2.0d0)
!       call vorn_test_add_trace(test, 1, [1.0, 2.0, 3.0])
!       call vorn_test_set_header(test, 1, 1, 'offset', 100)
!       call vorn_test_run(test)
!       call vorn_test_expect_traces(test, 1, 1)
!       call vorn_test_expect_samples(test, 1, 1, [2.0, 4.0, 6.0], 1.0d-6)
!       call vorn_test_expect_header(test, 1, 1, 'offset', 100.0d0)
!       call vorn_test_close(test)
!     end program gain_test
!
! Inputs, outputs, traces, messages and problems are counted from 1, in texts of problems from 0. Blanks
! behind texts do not count. What is not as it should be is kept; vorn_test_close prints it and ends the
! program with the exit code 1.
module vorn_module_test
  use, intrinsic :: iso_c_binding, only: c_associated, c_char, c_double, c_f_pointer, c_float, c_int, &
      c_int64_t, c_loc, c_null_char, c_null_ptr, c_ptr
  implicit none
  private

  public :: vorn_test_open, vorn_test_close
  public :: vorn_test_set, vorn_test_set_inputs, vorn_test_set_outputs, vorn_test_set_interval
  public :: vorn_test_add_trace, vorn_test_set_header
  public :: vorn_test_run, vorn_test_reason
  public :: vorn_test_traces, vorn_test_interval, vorn_test_samples, vorn_test_header
  public :: vorn_test_messages, vorn_test_message, vorn_test_bytes_left
  public :: vorn_test_problems, vorn_test_problem
  public :: vorn_test_expect_traces, vorn_test_expect_samples, vorn_test_expect_header
  public :: vorn_test_expect_message, vorn_test_expect_failure, vorn_test_expect_no_leak

  ! Results of vorn_test_run.
  integer, parameter, public :: vorn_test_done = 0
  integer, parameter, public :: vorn_test_not_loaded = 1
  integer, parameter, public :: vorn_test_failed = 2
  integer, parameter, public :: vorn_test_wrong_call = 3

  !> One module with its parameters, its input and what came out.
  type, public :: vorn_test
    private
    type(c_ptr) :: handle = c_null_ptr
  end type vorn_test

  !> Gives the module the parameter `name`: a number, a text, or a list of numbers.
  interface vorn_test_set
    module procedure set_int, set_int64, set_real, set_double, set_text
    module procedure set_ints, set_reals, set_doubles
  end interface vorn_test_set

  !> Sets the header word `word` of a trace of an input: an integer, a number or a text.
  interface vorn_test_set_header
    module procedure set_header_int, set_header_double, set_header_text
  end interface vorn_test_set_header

  !> Reads a header word of a trace that came out. `found` is false, and `value` unchanged, where trace
  !> or word do not exist; a text is then not allocated.
  interface vorn_test_header
    module procedure header_int, header_double, header_text
  end interface vorn_test_header

  !> Expects the value of a header word.
  interface vorn_test_expect_header
    module procedure expect_header_int, expect_header_double, expect_header_text
  end interface vorn_test_expect_header

  interface
    function c_open(name) bind(C, name='vorn_test_open') result(test)
      import :: c_char, c_ptr
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr) :: test
    end function c_open
    function c_close(test) bind(C, name='vorn_test_close') result(status)
      import :: c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int) :: status
    end function c_close
    function c_set_int(test, name, number) bind(C, name='vorn_test_set_int') result(status)
      import :: c_char, c_int, c_int64_t, c_ptr
      type(c_ptr), value :: test
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int64_t), value :: number
      integer(c_int) :: status
    end function c_set_int
    function c_set_number(test, name, number) bind(C, name='vorn_test_set_number') result(status)
      import :: c_char, c_double, c_int, c_ptr
      type(c_ptr), value :: test
      character(kind=c_char), intent(in) :: name(*)
      real(c_double), value :: number
      integer(c_int) :: status
    end function c_set_number
    function c_set_text(test, name, text) bind(C, name='vorn_test_set_text') result(status)
      import :: c_char, c_int, c_ptr
      type(c_ptr), value :: test
      character(kind=c_char), intent(in) :: name(*), text(*)
      integer(c_int) :: status
    end function c_set_text
    function c_set_ints(test, name, numbers, n) bind(C, name='vorn_test_set_ints') result(status)
      import :: c_char, c_int, c_ptr
      type(c_ptr), value :: test
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: numbers(*)
      integer(c_int), value :: n
      integer(c_int) :: status
    end function c_set_ints
    function c_set_numbers(test, name, numbers, n) bind(C, name='vorn_test_set_numbers') result(status)
      import :: c_char, c_double, c_int, c_ptr
      type(c_ptr), value :: test
      character(kind=c_char), intent(in) :: name(*)
      real(c_double), intent(in) :: numbers(*)
      integer(c_int), value :: n
      integer(c_int) :: status
    end function c_set_numbers
    function c_set_inputs(test, n) bind(C, name='vorn_test_set_inputs') result(status)
      import :: c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: n
      integer(c_int) :: status
    end function c_set_inputs
    function c_set_outputs(test, n) bind(C, name='vorn_test_set_outputs') result(status)
      import :: c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: n
      integer(c_int) :: status
    end function c_set_outputs
    function c_set_interval(test, n) bind(C, name='vorn_test_set_interval') result(status)
      import :: c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: n
      integer(c_int) :: status
    end function c_set_interval
    function c_add_trace(test, input, samples, n) bind(C, name='vorn_test_add_trace') result(trace)
      import :: c_float, c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: input
      real(c_float), intent(in) :: samples(*)
      integer(c_int), value :: n
      integer(c_int) :: trace
    end function c_add_trace
    function c_set_header(test, input, trace, word, number) bind(C, name='vorn_test_set_header') &
        result(status)
      import :: c_char, c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: input, trace
      character(kind=c_char), intent(in) :: word(*)
      integer(c_int), value :: number
      integer(c_int) :: status
    end function c_set_header
    function c_set_header_number(test, input, trace, word, number) &
        bind(C, name='vorn_test_set_header_number') result(status)
      import :: c_char, c_double, c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: input, trace
      character(kind=c_char), intent(in) :: word(*)
      real(c_double), value :: number
      integer(c_int) :: status
    end function c_set_header_number
    function c_set_header_text(test, input, trace, word, text) bind(C, name='vorn_test_set_header_text') &
        result(status)
      import :: c_char, c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: input, trace
      character(kind=c_char), intent(in) :: word(*), text(*)
      integer(c_int) :: status
    end function c_set_header_text
    function c_run(test) bind(C, name='vorn_test_run') result(status)
      import :: c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int) :: status
    end function c_run
    function c_reason(test) bind(C, name='vorn_test_reason') result(text)
      import :: c_ptr
      type(c_ptr), value :: test
      type(c_ptr) :: text
    end function c_reason
    function c_traces(test, output) bind(C, name='vorn_test_traces') result(n)
      import :: c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: output
      integer(c_int) :: n
    end function c_traces
    function c_interval(test, output) bind(C, name='vorn_test_interval') result(n)
      import :: c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: output
      integer(c_int) :: n
    end function c_interval
    function c_samples(test, output, trace, n) bind(C, name='vorn_test_samples') result(samples)
      import :: c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: output, trace
      integer(c_int), intent(out) :: n
      type(c_ptr) :: samples
    end function c_samples
    function c_header(test, output, trace, word, number) bind(C, name='vorn_test_header') result(status)
      import :: c_char, c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: output, trace
      character(kind=c_char), intent(in) :: word(*)
      integer(c_int), intent(inout) :: number
      integer(c_int) :: status
    end function c_header
    function c_header_number(test, output, trace, word, number) &
        bind(C, name='vorn_test_header_number') result(status)
      import :: c_char, c_double, c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: output, trace
      character(kind=c_char), intent(in) :: word(*)
      real(c_double), intent(inout) :: number
      integer(c_int) :: status
    end function c_header_number
    function c_header_text(test, output, trace, word) bind(C, name='vorn_test_header_text') result(text)
      import :: c_char, c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: output, trace
      character(kind=c_char), intent(in) :: word(*)
      type(c_ptr) :: text
    end function c_header_text
    function c_messages(test) bind(C, name='vorn_test_messages') result(n)
      import :: c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int) :: n
    end function c_messages
    function c_message(test, number, kind) bind(C, name='vorn_test_message') result(text)
      import :: c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: number
      integer(c_int), intent(inout) :: kind
      type(c_ptr) :: text
    end function c_message
    function c_bytes_left(test) bind(C, name='vorn_test_bytes_left') result(n)
      import :: c_int64_t, c_ptr
      type(c_ptr), value :: test
      integer(c_int64_t) :: n
    end function c_bytes_left
    function c_problems(test) bind(C, name='vorn_test_problems') result(n)
      import :: c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int) :: n
    end function c_problems
    function c_problem(test, number) bind(C, name='vorn_test_problem') result(text)
      import :: c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: number
      type(c_ptr) :: text
    end function c_problem
    function c_expect_traces(test, output, n) bind(C, name='vorn_test_expect_traces') result(status)
      import :: c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: output, n
      integer(c_int) :: status
    end function c_expect_traces
    function c_expect_samples(test, output, trace, expected, n, tolerance) &
        bind(C, name='vorn_test_expect_samples') result(status)
      import :: c_double, c_float, c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: output, trace
      real(c_float), intent(in) :: expected(*)
      integer(c_int), value :: n
      real(c_double), value :: tolerance
      integer(c_int) :: status
    end function c_expect_samples
    function c_expect_header(test, output, trace, word, number) bind(C, name='vorn_test_expect_header') &
        result(status)
      import :: c_char, c_double, c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: output, trace
      character(kind=c_char), intent(in) :: word(*)
      real(c_double), value :: number
      integer(c_int) :: status
    end function c_expect_header
    function c_expect_header_text(test, output, trace, word, text) &
        bind(C, name='vorn_test_expect_header_text') result(status)
      import :: c_char, c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int), value :: output, trace
      character(kind=c_char), intent(in) :: word(*), text(*)
      integer(c_int) :: status
    end function c_expect_header_text
    function c_expect_message(test, part) bind(C, name='vorn_test_expect_message') result(status)
      import :: c_char, c_int, c_ptr
      type(c_ptr), value :: test
      character(kind=c_char), intent(in) :: part(*)
      integer(c_int) :: status
    end function c_expect_message
    function c_expect_failure(test, part) bind(C, name='vorn_test_expect_failure') result(status)
      import :: c_char, c_int, c_ptr
      type(c_ptr), value :: test
      character(kind=c_char), intent(in) :: part(*)
      integer(c_int) :: status
    end function c_expect_failure
    function c_expect_no_leak(test) bind(C, name='vorn_test_expect_no_leak') result(status)
      import :: c_int, c_ptr
      type(c_ptr), value :: test
      integer(c_int) :: status
    end function c_expect_no_leak
    function c_length(text) bind(C, name='strlen') result(n)
      use, intrinsic :: iso_c_binding, only: c_ptr, c_size_t
      type(c_ptr), value :: text
      integer(c_size_t) :: n
    end function c_length
  end interface

contains

  ! ---- Texts ----

  function c_text(text) result(copy)
    character(len=*), intent(in) :: text
    character(kind=c_char, len=:), allocatable :: copy

    copy = trim(text) // c_null_char
  end function c_text

  function fortran_text(text) result(copy)
    type(c_ptr), intent(in) :: text
    character(len=:), allocatable :: copy
    character(kind=c_char), pointer :: letters(:)
    integer :: i

    copy = ''
    if (.not. c_associated(text)) return
    call c_f_pointer(text, letters, [c_length(text)])
    allocate (character(len=size(letters)) :: copy)
    do i = 1, size(letters)
      copy(i:i) = letters(i)
    end do
  end function fortran_text

  ! ---- Begin and end ----

  !> A test of the module of that name, or of the library of that path.
  subroutine vorn_test_open(test, module)
    type(vorn_test), intent(out) :: test
    character(len=*), intent(in) :: module

    test%handle = c_open(c_text(module))
  end subroutine vorn_test_open

  !> Prints what was not as it should be, and frees the test. `good` is true where there was nothing;
  !> without it, problems end the program with the exit code 1.
  subroutine vorn_test_close(test, good)
    type(vorn_test), intent(inout) :: test
    logical, intent(out), optional :: good
    integer(c_int) :: status

    status = c_close(test%handle)
    test%handle = c_null_ptr
    if (present(good)) then
      good = status == 0
    else if (status /= 0) then
      stop 1
    end if
  end subroutine vorn_test_close

  ! ---- Parameters ----

  subroutine set_int(test, name, value)
    type(vorn_test), intent(in) :: test
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: value
    integer(c_int) :: status

    status = c_set_int(test%handle, c_text(name), int(value, c_int64_t))
  end subroutine set_int

  subroutine set_int64(test, name, value)
    type(vorn_test), intent(in) :: test
    character(len=*), intent(in) :: name
    integer(c_int64_t), intent(in) :: value
    integer(c_int) :: status

    status = c_set_int(test%handle, c_text(name), value)
  end subroutine set_int64

  subroutine set_real(test, name, value)
    type(vorn_test), intent(in) :: test
    character(len=*), intent(in) :: name
    real(c_float), intent(in) :: value
    integer(c_int) :: status

    status = c_set_number(test%handle, c_text(name), real(value, c_double))
  end subroutine set_real

  subroutine set_double(test, name, value)
    type(vorn_test), intent(in) :: test
    character(len=*), intent(in) :: name
    real(c_double), intent(in) :: value
    integer(c_int) :: status

    status = c_set_number(test%handle, c_text(name), value)
  end subroutine set_double

  subroutine set_text(test, name, value)
    type(vorn_test), intent(in) :: test
    character(len=*), intent(in) :: name, value
    integer(c_int) :: status

    status = c_set_text(test%handle, c_text(name), c_text(value))
  end subroutine set_text

  subroutine set_ints(test, name, value)
    type(vorn_test), intent(in) :: test
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: value(:)
    integer(c_int) :: status

    status = c_set_ints(test%handle, c_text(name), value, size(value, kind=c_int))
  end subroutine set_ints

  subroutine set_reals(test, name, value)
    type(vorn_test), intent(in) :: test
    character(len=*), intent(in) :: name
    real(c_float), intent(in) :: value(:)

    call set_doubles(test, name, real(value, c_double))
  end subroutine set_reals

  subroutine set_doubles(test, name, value)
    type(vorn_test), intent(in) :: test
    character(len=*), intent(in) :: name
    real(c_double), intent(in) :: value(:)
    integer(c_int) :: status

    status = c_set_numbers(test%handle, c_text(name), value, size(value, kind=c_int))
  end subroutine set_doubles

  ! ---- Input ----

  !> How many inputs the module gets; without this call, as many as have traces.
  subroutine vorn_test_set_inputs(test, count)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: count
    integer(c_int) :: status

    status = c_set_inputs(test%handle, count)
  end subroutine vorn_test_set_inputs

  !> How many outputs it gets; without this call, one.
  subroutine vorn_test_set_outputs(test, count)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: count
    integer(c_int) :: status

    status = c_set_outputs(test%handle, count)
  end subroutine vorn_test_set_outputs

  !> The sample interval of all inputs in microseconds; without this call, 4000.
  subroutine vorn_test_set_interval(test, microseconds)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: microseconds
    integer(c_int) :: status

    status = c_set_interval(test%handle, microseconds)
  end subroutine vorn_test_set_interval

  !> Adds a trace to the input `input` (from 1).
  subroutine vorn_test_add_trace(test, input, samples)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: input
    real(c_float), intent(in) :: samples(:)
    integer(c_int) :: trace

    trace = c_add_trace(test%handle, input - 1, samples, size(samples, kind=c_int))
  end subroutine vorn_test_add_trace

  subroutine set_header_int(test, input, trace, word, value)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: input, trace
    character(len=*), intent(in) :: word
    integer(c_int), intent(in) :: value
    integer(c_int) :: status

    status = c_set_header(test%handle, input - 1, trace - 1, c_text(word), value)
  end subroutine set_header_int

  subroutine set_header_double(test, input, trace, word, value)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: input, trace
    character(len=*), intent(in) :: word
    real(c_double), intent(in) :: value
    integer(c_int) :: status

    status = c_set_header_number(test%handle, input - 1, trace - 1, c_text(word), value)
  end subroutine set_header_double

  subroutine set_header_text(test, input, trace, word, value)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: input, trace
    character(len=*), intent(in) :: word, value
    integer(c_int) :: status

    status = c_set_header_text(test%handle, input - 1, trace - 1, c_text(word), c_text(value))
  end subroutine set_header_text

  ! ---- Run ----

  !> Runs the job. `status`: vorn_test_done, or why not. A module that fails is a problem, unless
  !> vorn_test_expect_failure follows.
  subroutine vorn_test_run(test, status)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(out), optional :: status
    integer(c_int) :: result

    result = c_run(test%handle)
    if (present(status)) status = result
  end subroutine vorn_test_run

  !> Why the last run did not end with vorn_test_done; empty where it did.
  function vorn_test_reason(test) result(text)
    type(vorn_test), intent(in) :: test
    character(len=:), allocatable :: text

    text = fortran_text(c_reason(test%handle))
  end function vorn_test_reason

  ! ---- What came out ----

  !> How many traces came out of the output `output` (from 1).
  function vorn_test_traces(test, output) result(count)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: output
    integer(c_int) :: count

    count = c_traces(test%handle, output - 1)
  end function vorn_test_traces

  !> The sample interval of the output `output` (from 1) in microseconds.
  function vorn_test_interval(test, output) result(interval)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: output
    integer(c_int) :: interval

    interval = c_interval(test%handle, output - 1)
  end function vorn_test_interval

  !> Points `samples` at the samples of a trace, until the next run; null where the trace does not exist.
  subroutine vorn_test_samples(test, output, trace, samples)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: output, trace
    real(c_float), pointer, intent(out) :: samples(:)
    type(c_ptr) :: address
    integer(c_int) :: n

    nullify (samples)
    address = c_samples(test%handle, output - 1, trace - 1, n)
    if (c_associated(address)) call c_f_pointer(address, samples, [n])
  end subroutine vorn_test_samples

  subroutine header_int(test, output, trace, word, value, found)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: output, trace
    character(len=*), intent(in) :: word
    integer(c_int), intent(inout) :: value
    logical, intent(out) :: found

    found = c_header(test%handle, output - 1, trace - 1, c_text(word), value) == 0
  end subroutine header_int

  subroutine header_double(test, output, trace, word, value, found)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: output, trace
    character(len=*), intent(in) :: word
    real(c_double), intent(inout) :: value
    logical, intent(out) :: found

    found = c_header_number(test%handle, output - 1, trace - 1, c_text(word), value) == 0
  end subroutine header_double

  subroutine header_text(test, output, trace, word, value, found)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: output, trace
    character(len=*), intent(in) :: word
    character(len=:), allocatable, intent(out) :: value
    logical, intent(out) :: found
    type(c_ptr) :: text

    text = c_header_text(test%handle, output - 1, trace - 1, c_text(word))
    found = c_associated(text)
    if (found) value = fortran_text(text)
  end subroutine header_text

  !> How many messages the module has sent.
  function vorn_test_messages(test) result(count)
    type(vorn_test), intent(in) :: test
    integer(c_int) :: count

    count = c_messages(test%handle)
  end function vorn_test_messages

  !> Message `number` (from 1); empty where there is none. `kind` is its type, 0 detail to 4 fatal.
  subroutine vorn_test_message(test, number, text, kind)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: number
    character(len=:), allocatable, intent(out) :: text
    integer(c_int), intent(out), optional :: kind
    integer(c_int) :: found

    found = -1
    text = fortran_text(c_message(test%handle, number - 1, found))
    if (present(kind)) kind = found
  end subroutine vorn_test_message

  !> Bytes of accounted memory that the module has not freed.
  function vorn_test_bytes_left(test) result(bytes)
    type(vorn_test), intent(in) :: test
    integer(c_int64_t) :: bytes

    bytes = c_bytes_left(test%handle)
  end function vorn_test_bytes_left

  !> Problems so far.
  function vorn_test_problems(test) result(count)
    type(vorn_test), intent(in) :: test
    integer(c_int) :: count

    count = c_problems(test%handle)
  end function vorn_test_problems

  !> Problem `number` (from 1); empty where there is none.
  function vorn_test_problem(test, number) result(text)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: number
    character(len=:), allocatable :: text

    text = fortran_text(c_problem(test%handle, number - 1))
  end function vorn_test_problem

  ! ---- Expectations ----

  !> So many traces came out, the last one, and no other, marked as the end of the data.
  subroutine vorn_test_expect_traces(test, output, count)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: output, count
    integer(c_int) :: status

    status = c_expect_traces(test%handle, output - 1, count)
  end subroutine vorn_test_expect_traces

  !> The trace has these samples; none differs by more than `tolerance`.
  subroutine vorn_test_expect_samples(test, output, trace, expected, tolerance)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: output, trace
    real(c_float), intent(in) :: expected(:)
    real(c_double), intent(in) :: tolerance
    integer(c_int) :: status

    status = c_expect_samples(test%handle, output - 1, trace - 1, expected, &
        size(expected, kind=c_int), tolerance)
  end subroutine vorn_test_expect_samples

  subroutine expect_header_int(test, output, trace, word, value)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: output, trace
    character(len=*), intent(in) :: word
    integer(c_int), intent(in) :: value

    call expect_header_double(test, output, trace, word, real(value, c_double))
  end subroutine expect_header_int

  subroutine expect_header_double(test, output, trace, word, value)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: output, trace
    character(len=*), intent(in) :: word
    real(c_double), intent(in) :: value
    integer(c_int) :: status

    status = c_expect_header(test%handle, output - 1, trace - 1, c_text(word), value)
  end subroutine expect_header_double

  subroutine expect_header_text(test, output, trace, word, value)
    type(vorn_test), intent(in) :: test
    integer(c_int), intent(in) :: output, trace
    character(len=*), intent(in) :: word, value
    integer(c_int) :: status

    status = c_expect_header_text(test%handle, output - 1, trace - 1, c_text(word), c_text(value))
  end subroutine expect_header_text

  !> A message of the module contains `part`.
  subroutine vorn_test_expect_message(test, part)
    type(vorn_test), intent(in) :: test
    character(len=*), intent(in) :: part
    integer(c_int) :: status

    status = c_expect_message(test%handle, c_text(part))
  end subroutine vorn_test_expect_message

  !> The run ended with vorn_test_failed, for a reason that contains `part`.
  subroutine vorn_test_expect_failure(test, part)
    type(vorn_test), intent(in) :: test
    character(len=*), intent(in) :: part
    integer(c_int) :: status

    status = c_expect_failure(test%handle, c_text(part))
  end subroutine vorn_test_expect_failure

  !> The module has freed its memory and the traces of its work buffers.
  subroutine vorn_test_expect_no_leak(test)
    type(vorn_test), intent(in) :: test
    integer(c_int) :: status

    status = c_expect_no_leak(test%handle)
  end subroutine vorn_test_expect_no_leak
end module vorn_module_test
