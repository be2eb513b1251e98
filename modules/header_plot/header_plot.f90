! header_plot: draws header words of traces against each other, or how many traces have which value
! of one.
module header_plot_job
  use, intrinsic :: iso_c_binding, only: c_associated, c_char, c_double, c_f_pointer, c_float, &
      c_int, c_int64_t, c_null_char, c_ptr
  use header_plot_math
  use module_tools
  use vorn_knl
  implicit none
  private
  public :: plot_state, read_parameters, consume, finish, find

  integer, parameter :: longest_name = 255, most_series = 4
  ! In the picture, for each series: 240 by 160 symbols of the usual size cover it.
  integer, parameter :: most_points = 40000
  integer, parameter :: room_for_points = 2**18 ! before some must go
  integer, parameter :: most_values = 2**20     ! that are counted apart
  integer, parameter :: most_columns = 1000
  integer(c_int), parameter :: graph = 2, move = 3, draw = 2
  integer(c_int), parameter :: pens(most_series) = [3, 2, 4, 5] ! blue, red, green, orange
  character(len=8), parameter :: symbols(0:6) = [character(len=8) :: 'square', 'circle', &
      'triangle', 'plus', 'cross', 'diamond', 'dot']

  integer, parameter :: room_for_text = 16384 ! the kernel copies whatever the job has, unchecked

  interface
    integer(c_int) function c_get_text(name, text) bind(C, name='knl_getStrModuleParameter')
      import :: c_char, c_int
      character(kind=c_char), intent(in) :: name(*)
      character(kind=c_char), intent(inout) :: text(*)
    end function c_get_text
  end interface

  ! What came of a header word.
  type :: word_state
    character(len=:), allocatable :: name      ! empty: the number of the trace
    character(len=:), allocatable :: parameter ! that named it
    logical :: scaled = .false.                ! a scalar was found with it
    real(c_double) :: least = huge(1.0_c_double), greatest = -huge(1.0_c_double)
  end type word_state

  ! Points of one word against another.
  type :: series_state
    type(word_state) :: x, y
    integer(c_int) :: count = 0
    real(c_double), allocatable :: xs(:), ys(:) ! `count` of them, and room for more
  end type series_state

  ! What the module keeps from one call to the next.
  type :: plot_state
    logical :: failed = .false.
    logical :: fold = .false. ! counts values of the first series' x
    logical :: use_scalars = .true.
    integer(c_int) :: symbol = 6
    real(c_double) :: size = 3 ! points
    character(len=:), allocatable :: title
    type(series_state), allocatable :: series(:)
    integer(c_int64_t) :: traces = 0
    integer(c_int64_t) :: odd = 0 ! traces with a value that is infinite or no number
    ! Of the fold: a bin holds the values from origin + key * bin, and is 2**doublings bins wide.
    real(c_double) :: origin = 0, bin = 0
    integer :: doublings = 0
    integer(c_int) :: values = 0 ! in the table
    integer(c_int64_t), allocatable :: keys(:), counts(:)
  end type plot_state

contains

  ! ---- Parameters. `good` is false after a message. ----

  subroutine read_parameters(state, good)
    type(plot_state), intent(inout) :: state
    logical, intent(out) :: good
    character(len=1023) :: mode, title
    integer(c_int) :: scaled
    logical :: found

    mode = 'points'
    title = ' '
    scaled = 1
    call knl_get_module_parameter('mode', mode, found)
    call knl_get_module_parameter('title', title, found)
    call knl_get_module_parameter('scaled', scaled, found)
    state%title = first_line(trim(title))
    state%fold = mode == 'fold'
    state%use_scalars = scaled /= 0

    good = state%fold .or. mode == 'points'
    if (.not. good) call fail('header_plot', 'mode is "' // trim(mode) // '"; give points or fold')
    if (good) call read_symbol(state, good)
    if (good .and. state%fold) call read_fold(state, good)
    if (good .and. .not. state%fold) call read_series(state, good)
  end subroutine read_parameters

  subroutine read_symbol(state, good)
    type(plot_state), intent(inout) :: state
    logical, intent(out) :: good
    character(len=255) :: name
    logical :: found
    integer :: i

    name = 'dot'
    call knl_get_module_parameter('symbol', name, found)
    call knl_get_module_parameter('size', state%size, found)
    good = .false.
    do i = lbound(symbols, 1), ubound(symbols, 1)
      if (symbols(i) /= name) cycle
      state%symbol = i
      good = .true.
    end do
    if (.not. good) then
      call fail('header_plot', 'symbol is "' // trim(name) // &
          '"; give dot, square, circle, triangle, plus, cross or diamond')
    else if (.not. (state%size > 0 .and. state%size <= 100)) then
      good = .false.
      call fail('header_plot', 'size is ' // text_of(state%size) // &
          ' points; give a number above 0, at most 100')
    end if
  end subroutine read_symbol

  subroutine read_fold(state, good)
    type(plot_state), intent(inout) :: state
    logical, intent(out) :: good
    character(len=longest_name), allocatable :: names(:)
    logical :: has_bin

    call read_names('x', 'cdp', names)
    state%bin = 1
    call knl_get_module_parameter('bin', state%bin, has_bin)
    ! Whole numbers lie in the middle of their bins, unless bins of another kind are wanted.
    state%origin = merge(0.0_c_double, -0.5_c_double, has_bin)

    good = .false.
    if (size(names) /= 1) then
      call fail('header_plot', 'x has ' // text_of(real(size(names), c_double)) // &
          ' header words; give one of which values are counted')
    else if (.not. (state%bin > 0 .and. state%bin <= huge(state%bin))) then
      call fail('header_plot', 'bin is ' // text_of(state%bin) // '; give a number above 0')
    else
      good = .true.
      allocate (state%series(1), state%keys(1024), state%counts(1024))
      state%series(1)%x = word_of(names(1), 'x')
      state%counts = 0
    end if
  end subroutine read_fold

  subroutine read_series(state, good)
    type(plot_state), intent(inout) :: state
    logical, intent(out) :: good
    character(len=longest_name), allocatable :: xs(:), ys(:)
    integer :: i

    call read_names('x', ' ', xs)
    call read_names('y', 'offset', ys)
    good = .false.
    if (size(ys) > most_series) then
      call fail('header_plot', 'y has ' // text_of(real(size(ys), c_double)) // &
          ' header words; give at most ' // text_of(real(most_series, c_double)))
    else if (size(xs) /= 1 .and. size(xs) /= size(ys)) then
      call fail('header_plot', 'x and y have ' // text_of(real(size(xs), c_double)) // ' and ' // &
          text_of(real(size(ys), c_double)) // ' header words; give one x, or one for each y')
    else
      good = .true.
      allocate (state%series(size(ys)))
      do i = 1, size(ys)
        state%series(i)%x = word_of(xs(min(i, size(xs))), 'x')
        state%series(i)%y = word_of(ys(i), 'y')
        allocate (state%series(i)%xs(1024), state%series(i)%ys(1024))
      end do
    end if
  end subroutine read_series

  !> A list of names, which the job separates by line feeds; one at least. The text of vorn_knl would
  !> end at the first of these, that of C has all.
  subroutine read_names(parameter, default, names)
    character(len=*), intent(in) :: parameter, default
    character(len=longest_name), allocatable, intent(out) :: names(:)
    character(kind=c_char) :: characters(room_for_text)
    character(len=room_for_text) :: text
    integer :: at, length

    text = default
    if (c_get_text(parameter // c_null_char, characters) == 1) text = text_before_nul(characters)
    allocate (names(0))
    at = 1
    do
      length = scan(text(at:), achar(10)) - 1
      if (length < 0) length = len_trim(text(at:))
      names = [character(len=longest_name) :: names, adjustl(text(at:at + length - 1))]
      at = at + length + 1
      if (at > len_trim(text)) exit
    end do
  end subroutine read_names

  pure function text_before_nul(characters) result(text)
    character(kind=c_char), intent(in) :: characters(:)
    character(len=:), allocatable :: text
    integer :: i

    text = ''
    do i = 1, size(characters)
      if (characters(i) == c_null_char) exit
      text = text // characters(i)
    end do
  end function text_before_nul

  pure function word_of(name, parameter) result(word)
    character(len=*), intent(in) :: name, parameter
    type(word_state) :: word

    word%name = trim(name)
    word%parameter = parameter
  end function word_of

  pure function first_line(text) result(line)
    character(len=*), intent(in) :: text
    character(len=:), allocatable :: line
    integer :: length

    length = scan(text, achar(10) // achar(13)) - 1
    if (length < 0) length = len(text)
    line = text(:length)
  end function first_line

  ! ---- Traces ----

  !> Takes the first trace of `input`.
  subroutine consume(state, input)
    type(plot_state), intent(inout) :: state
    type(c_ptr), intent(in) :: input
    real(c_double) :: x(most_series), y(most_series)
    integer :: i, count

    count = size(state%series)
    state%traces = state%traces + 1
    y = 0
    do i = 1, count
      call read_word(state, input, state%series(i)%x, x(i))
      if (.not. (state%failed .or. state%fold)) call read_word(state, input, state%series(i)%y, y(i))
      if (state%failed) return
    end do
    if (.not. all(abs([x(:count), y(:count)]) <= huge(1.0_c_double))) then
      state%odd = state%odd + 1
    else if (state%fold) then
      call count_value(state, x(1))
    else
      do i = 1, count
        call add_point(state%series(i), x(i), y(i))
      end do
    end if
  end subroutine consume

  subroutine read_word(state, input, word, value)
    type(plot_state), intent(inout) :: state
    type(c_ptr), intent(in) :: input
    type(word_state), intent(inout) :: word
    real(c_double), intent(out) :: value
    real(c_double) :: scalar
    integer(c_int) :: status

    value = real(state%traces, c_double)
    if (word%name == '') return
    call knl_get_trace_attribute(input, word%name, value, status)
    if (status /= 0) then
      call fail('header_plot', 'the traces have no header word "' // word%name // &
          '"; name one that they have with ' // word%parameter)
      state%failed = .true.
      return
    end if
    if (.not. state%use_scalars .or. scalar_of(word%name) == '') return
    scalar = 0
    call knl_get_trace_attribute(input, scalar_of(word%name), scalar, status)
    value = header_plot_scaled(value, scalar)
    word%scaled = word%scaled .or. (scalar /= 0 .and. scalar /= 1)
  end subroutine read_word

  !> The header word that scales another; empty where none does.
  pure function scalar_of(name) result(scalar)
    character(len=*), intent(in) :: name
    character(len=:), allocatable :: scalar

    select case (name)
    case ('sx', 'sy', 'gx', 'gy', 'cdpx', 'cdpy')
      scalar = 'scalco'
    case ('gelev', 'selev', 'sdepth', 'gdel', 'sdel', 'swdep', 'gwdep')
      scalar = 'scalel'
    case ('sp')
      scalar = 'scalsp'
    case default
      scalar = ''
    end select
  end function scalar_of

  pure subroutine widen(word, value)
    type(word_state), intent(inout) :: word
    real(c_double), intent(in) :: value

    word%least = min(word%least, value)
    word%greatest = max(word%greatest, value)
  end subroutine widen

  subroutine add_point(series, x, y)
    type(series_state), intent(inout) :: series
    real(c_double), intent(in) :: x, y

    call widen(series%x, x)
    call widen(series%y, y)
    if (series%count > 0) then
      ! What neighbours have in common is the most frequent repetition.
      if (x == series%xs(series%count) .and. y == series%ys(series%count)) return
    end if
    if (series%count == size(series%xs)) call make_room(series)
    series%count = series%count + 1
    series%xs(series%count) = x
    series%ys(series%count) = y
  end subroutine add_point

  ! A raster finer than that of the picture, over what has come so far, decides which points go.
  subroutine make_room(series)
    type(series_state), intent(inout) :: series

    if (series%count >= room_for_points) then
      call header_plot_thin(series%count, series%xs, series%ys, 3840, 2560, room_for_points / 2)
    else
      series%xs = [series%xs, series%xs]
      series%ys = [series%ys, series%ys]
    end if
  end subroutine make_room

  subroutine count_value(state, value)
    type(plot_state), intent(inout) :: state
    real(c_double), intent(in) :: value
    real(c_double) :: number
    real(c_double), parameter :: most = 2.0_c_double**52 ! whole numbers beyond are no more exact

    number = (value - state%origin) / state%bin
    if (.not. abs(number) < most) then
      state%odd = state%odd + 1
      return
    end if
    call widen(state%series(1)%x, value)
    state%values = state%values + header_plot_count(size(state%keys, kind=c_int), state%keys, &
        state%counts, shifta(floor(number, c_int64_t), state%doublings), 1_c_int64_t)
    if (2 * state%values > size(state%keys)) call rebuild(state)
  end subroutine count_value

  ! A table of twice the size; where it has grown enough, bins of twice the width.
  subroutine rebuild(state)
    type(plot_state), intent(inout) :: state
    integer(c_int64_t), allocatable :: keys(:), counts(:)
    integer(c_int) :: capacity
    integer :: i, shift

    call move_alloc(state%keys, keys)
    call move_alloc(state%counts, counts)
    shift = merge(1, 0, state%values > most_values)
    capacity = size(keys, kind=c_int)
    if (shift == 0) capacity = 2 * capacity
    state%doublings = state%doublings + shift
    allocate (state%keys(capacity), state%counts(capacity))
    state%counts = 0
    state%values = 0
    do i = 1, size(keys)
      if (counts(i) > 0) state%values = state%values + header_plot_count(capacity, state%keys, &
          state%counts, shifta(keys(i), shift), counts(i))
    end do
  end subroutine rebuild

  ! ---- Results ----

  !> Messages and the picture, when all traces have come.
  subroutine finish(state)
    type(plot_state), intent(inout) :: state

    if (state%odd > 0) call knl_send_message(knl_message_warning, &
        'traces with a value that is infinite, no number or beyond counting: ' // &
        whole(state%odd) // '; they are left out')
    if (state%traces == state%odd) then
      if (.not. job_has_failed()) call knl_send_message(knl_message_warning, &
          'there is no trace to draw')
    else if (state%fold) then
      call finish_fold(state)
    else
      call finish_points(state)
    end if
  end subroutine finish

  subroutine finish_points(state)
    type(plot_state), intent(inout) :: state
    integer :: i

    do i = 1, size(state%series)
      call report_word(state, state%series(i)%y)
      if (i == 1 .or. state%series(i)%x%name /= state%series(1)%x%name) &
          call report_word(state, state%series(i)%x)
      call header_plot_thin(state%series(i)%count, state%series(i)%xs, state%series(i)%ys, &
          960, 640, most_points)
    end do
    call draw_points(state)
  end subroutine finish_points

  subroutine report_word(state, word)
    type(plot_state), intent(in) :: state
    type(word_state), intent(in) :: word

    if (word%name == '') return
    call knl_send_message(knl_message_information, word%name // ' from ' // &
        text_of(word%least) // ' to ' // text_of(word%greatest) // ' in ' // &
        counted(state%traces - state%odd, 'trace') // scaling_of(word))
    if (word%least == 0 .and. word%greatest == 0) call knl_send_message(knl_message_warning, &
        word%name // ' is 0 in all traces; the data may not have this header word')
    call note_number(word%name // '.min', word%least)
    call note_number(word%name // '.max', word%greatest)
  end subroutine report_word

  subroutine note_number(name, value)
    character(len=*), intent(in) :: name
    real(c_double), intent(in) :: value

    call knl_set_metadata_value(knl_scope_module, 'qc.header_plot.' // name, text_of(value))
  end subroutine note_number

  pure function label_of(word) result(label)
    type(word_state), intent(in) :: word
    character(len=:), allocatable :: label

    label = word%name
    if (word%name == '') label = 'trace number'
  end function label_of

  !> "; sx scaled by scalco"; empty where nothing was scaled.
  pure function scaling_of(word) result(text)
    type(word_state), intent(in) :: word
    character(len=:), allocatable :: text

    text = ''
    if (word%scaled) text = '; ' // word%name // ' scaled by ' // scalar_of(word%name)
  end function scaling_of

  subroutine draw_points(state)
    type(plot_state), intent(in) :: state
    character(len=:), allocatable :: title
    integer(c_int) :: pad
    integer :: i, j

    title = state%title
    if (title == '') title = labels(.false.) // ' against ' // labels(.true.)
    title = title // achar(10) // 'x: ' // labels(.true.) // achar(10) // 'y: ' // labels(.false.) // &
        achar(10) // 'xrange: ' // range_of(state%series%x%least, state%series%x%greatest) // &
        achar(10) // 'yrange: ' // range_of(state%series%y%least, state%series%y%greatest) // &
        achar(10) // 'note: ' // counted(state%traces - state%odd, 'trace') // ', ' // &
        counted(int(sum(state%series%count), c_int64_t), 'point')
    if (sum(state%series%count) < size(state%series) * (state%traces - state%odd)) &
        title = title // '; what would cover another point is left out'
    do i = 1, size(state%series)
      if (i == 1 .or. state%series(i)%x%name /= state%series(1)%x%name) &
          title = title // scaling_of(state%series(i)%x)
      title = title // scaling_of(state%series(i)%y)
    end do
    if (size(state%series) > 1) title = title // legend()
    call knl_create_pad(pad, graph, 0_c_int, title)
    if (pad < 0) return ! the host has none
    do i = 1, size(state%series)
      call knl_newpen(pad, pens(i))
      associate (series => state%series(i))
        do j = 1, series%count
          call knl_symbol(pad, real(series%xs(j), c_float), real(series%ys(j), c_float), &
              real(state%size, c_float), ' ', state%symbol, 0.0_c_float, 0_c_int)
        end do
      end associate
    end do

  contains

    !> The words of an axis, each once.
    function labels(of_x) result(text)
      logical, intent(in) :: of_x
      character(len=:), allocatable :: text, label
      integer :: k

      text = ''
      do k = 1, size(state%series)
        if (of_x) then
          label = label_of(state%series(k)%x)
        else
          label = label_of(state%series(k)%y)
        end if
        if (text == '') then
          text = label
        else if (index(', ' // text // ',', ', ' // label // ',') == 0) then
          text = text // ', ' // label
        end if
      end do
    end function labels

    function legend() result(text)
      character(len=:), allocatable :: text
      character(len=8) :: pen
      integer :: k

      text = achar(10) // 'legend: '
      do k = 1, size(state%series)
        write (pen, '(i0)') pens(k)
        text = text // trim(pen) // '=' // label_of(state%series(k)%y)
        if (state%series(k)%x%name /= state%series(1)%x%name .or. &
            state%series(size(state%series))%x%name /= state%series(1)%x%name) &
            text = text // ' against ' // label_of(state%series(k)%x)
        text = text // ','
      end do
    end function legend
  end subroutine draw_points

  !> Both ends of an axis, a little outside of all values.
  function range_of(least, greatest) result(text)
    real(c_double), intent(in) :: least(:), greatest(:)
    character(len=:), allocatable :: text
    real(c_double) :: from, to, margin

    from = minval(least)
    to = maxval(greatest)
    margin = 0.03_c_double * (to - from)
    if (.not. (margin > 0 .and. margin <= huge(margin))) margin = 0
    ! The pen's coordinates have 24 bits: one value alone gets an axis in which they differ.
    if (from == to) margin = max(0.5_c_double, 1.0e-6_c_double * abs(from))
    text = digits_of(from - margin) // ' ' // digits_of(to + margin)
  end function range_of

  subroutine finish_fold(state)
    type(plot_state), intent(inout) :: state
    integer(c_int64_t), allocatable :: heights(:)
    integer(c_int64_t) :: bins, width, least, greatest
    real(c_double) :: mean, bin

    state%values = header_plot_collect(size(state%keys, kind=c_int), state%keys, state%counts)
    bin = state%bin * 2.0_c_double**state%doublings
    least = minval(state%counts(:state%values))
    greatest = maxval(state%counts(:state%values))
    mean = real(state%traces - state%odd, c_double) / state%values
    if (state%doublings > 0) call knl_send_message(knl_message_warning, &
        state%series(1)%x%name // ' has too many values; they are counted in bins of ' // &
        text_of(bin))
    call report_word(state, state%series(1)%x)
    call knl_send_message(knl_message_information, 'fold from ' // whole(least) // ' to ' // &
        whole(greatest) // ', mean ' // rounded(mean) // ', of ' // &
        counted(int(state%values, c_int64_t), merge('bin  ', 'value', state%origin == 0)))
    call note_number('fold.min', real(least, c_double))
    call note_number('fold.max', real(greatest, c_double))
    call note_number('fold.mean', mean)

    bins = state%keys(state%values) - state%keys(1) + 1
    width = (bins + most_columns - 1) / most_columns
    allocate (heights((bins + width - 1) / width))
    call header_plot_columns(state%values, state%keys, state%counts, &
        size(heights, kind=c_int), width, heights)
    call draw_fold(state, heights, state%origin + real(state%keys(1), c_double) * bin, &
        real(width, c_double) * bin, width, &
        'fold ' // whole(least) // ' to ' // whole(greatest) // ', mean ' // rounded(mean))
  end subroutine finish_fold

  !> Bars, the first of which begins at `left`; the tops only where there are too many of them.
  subroutine draw_fold(state, heights, left, step, width, results)
    type(plot_state), intent(in) :: state
    integer(c_int64_t), intent(in) :: heights(:), width
    real(c_double), intent(in) :: left, step
    character(len=*), intent(in) :: results
    character(len=:), allocatable :: title, word
    real(c_float) :: bottom, top
    integer(c_int) :: pad
    integer :: i

    word = label_of(state%series(1)%x)
    title = state%title
    if (title == '') title = 'Traces by ' // word
    title = title // achar(10) // 'x: ' // word // achar(10) // 'y: traces' // achar(10) // &
        'xrange: ' // range_of([left], [left + size(heights) * step]) // achar(10) // 'yrange: 0 ' // &
        digits_of(header_plot_round_up(1.02_c_double * maxval(heights))) // achar(10) // 'note: ' // &
        counted(state%traces - state%odd, 'trace') // ', ' // results
    title = title // scaling_of(state%series(1)%x)
    if (step > width .or. state%origin == 0) title = title // '; bins of ' // text_of(step / width)
    if (width > 1) title = title // '; each column shows the greatest of ' // whole(width)
    call knl_create_pad(pad, graph, 0_c_int, title)
    if (pad < 0) return ! the host has none

    call knl_newpen(pad, pens(1))
    bottom = 0
    call knl_plot(pad, real(left, c_float), bottom, move)
    do i = 1, size(heights)
      top = real(heights(i), c_float)
      if (size(heights) <= 200) call knl_plot(pad, place(i - 1), bottom, draw)
      call knl_plot(pad, place(i - 1), top, draw)
      call knl_plot(pad, place(i), top, draw)
      if (size(heights) <= 200) call knl_plot(pad, place(i), bottom, draw)
    end do
    call knl_plot(pad, place(size(heights)), bottom, draw)

  contains

    real(c_float) function place(column)
      integer, intent(in) :: column

      place = real(left + column * step, c_float)
    end function place
  end subroutine draw_fold

  ! ---- Texts ----

  pure function whole(number) result(text)
    integer(c_int64_t), intent(in) :: number
    character(len=:), allocatable :: text
    character(len=24) :: digits

    write (digits, '(i0)') number
    text = trim(digits)
  end function whole

  !> "1 trace", "2 traces"
  pure function counted(number, thing) result(text)
    integer(c_int64_t), intent(in) :: number
    character(len=*), intent(in) :: thing
    character(len=:), allocatable :: text

    text = whole(number) // ' ' // trim(thing)
    if (number /= 1) text = text // 's'
  end function counted

  !> With at most two decimals.
  pure function rounded(value) result(text)
    real(c_double), intent(in) :: value
    character(len=:), allocatable :: text

    text = text_of(anint(100 * value) / 100)
  end function rounded

  !> With all digits, for programs to read.
  pure function digits_of(value) result(text)
    real(c_double), intent(in) :: value
    character(len=:), allocatable :: text
    character(len=32) :: digits

    write (digits, '(es24.15e3)') value
    text = trim(adjustl(digits))
  end function digits_of

  !> Null where preprocess has failed.
  subroutine find(state)
    type(plot_state), pointer, intent(out) :: state
    type(c_ptr) :: address

    nullify (state)
    address = kept_address()
    if (c_associated(address)) call c_f_pointer(address, state)
  end subroutine find
end module header_plot_job

integer function preprocess()
  use, intrinsic :: iso_c_binding, only: c_int, c_loc, c_ptr
  use header_plot_job
  use module_tools
  use vorn_knl
  implicit none
  type(plot_state), pointer :: state
  type(c_ptr) :: input
  integer(c_int) :: length, interval, status
  logical :: good

  preprocess = 0
  call knl_get_input_trace_buffer(input, 1, status)
  if (status /= 0) then
    call fail('header_plot', 'the module has no input; connect one')
    return
  end if
  ! Whoever wants them finds the traces at an output; none need be there.
  call knl_get_trace_length(input, length, status)
  call knl_get_trace_sample_interval(input, interval, status)
  call knl_bld_output_trace_buffer(1, length, interval, input, status)

  allocate (state)
  call read_parameters(state, good)
  if (.not. good) then
    deallocate (state)
    return
  end if
  call keep_address(c_loc(state))
end function preprocess

! Each trace passes on, until one has not the header word.
integer function process()
  use, intrinsic :: iso_c_binding, only: c_int, c_ptr
  use header_plot_job
  use vorn_knl
  implicit none
  type(plot_state), pointer :: state
  type(c_ptr) :: input, output
  integer(c_int) :: number, no_input, no_output, status
  logical :: good

  process = 0
  call knl_get_output_trace_buffer(output, 1, no_output)
  call knl_get_input_trace_buffer(input, 1, no_input)
  call find(state)
  good = associated(state) .and. no_input == 0
  if (good) then
    if (.not. state%failed) call consume(state, input)
    good = .not. state%failed
  end if
  if (no_output /= 0) return
  if (.not. good) then
    call knl_set_data_channel_flag(output, knl_end_of_data) ! do not ask again
    return
  end if
  call knl_get_number_of_traces(output, number, status)
  number = number + 1
  ! Header, samples, and the flag that says whether this is the last trace.
  call knl_copy_trace_to_trace(input, output, .true., .true., status, 1, number)
end function process

integer function postprocess()
  use, intrinsic :: iso_c_binding, only: c_null_ptr
  use header_plot_job
  use module_tools, only: keep_address
  implicit none
  type(plot_state), pointer :: state

  postprocess = 0
  call find(state)
  if (.not. associated(state)) return
  if (.not. state%failed) call finish(state)
  deallocate (state)
  call keep_address(c_null_ptr)
end function postprocess
