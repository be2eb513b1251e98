! header_plot: plots header words of traces against each other, or the number of traces per value
! of one.
module header_plot_job
  use, intrinsic :: iso_c_binding, only: c_double, c_float, c_int, c_int64_t, c_ptr
  use header_plot_math
  use header_plot_parameters
  use vorn_kit
  use vorn_knl
  implicit none
  private

  integer, parameter :: most_series = 4
  ! In the picture, for each series: 240 by 160 symbols of the usual size cover it.
  integer, parameter :: most_points = 40000
  integer, parameter :: room_for_points = 2**18 ! before some must go
  integer, parameter :: most_values = 2**20     ! that are counted apart
  integer, parameter :: most_columns = 1000
  integer(c_int), parameter :: pens(most_series) = &
      [vorn_pen_blue, vorn_pen_red, vorn_pen_green, vorn_pen_orange]
  ! By the values of the parameter symbol.
  integer(c_int), parameter :: symbols(0:6) = [vorn_symbol_dot, vorn_symbol_square, &
      vorn_symbol_circle, vorn_symbol_triangle, vorn_symbol_plus, vorn_symbol_cross, &
      vorn_symbol_diamond]

  ! The values of a header word.
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
  type, extends(vorn_module), public :: plot_state
    type(parameters) :: set
    logical :: fold = .false. ! counts values of the first series' x
    character(len=:), allocatable :: title
    type(series_state), allocatable :: series(:)
    integer(c_int64_t) :: traces = 0
    integer(c_int64_t) :: odd = 0 ! traces with a value that is infinite or NaN
    ! Of the fold: a bin holds the values from origin + key * bin, and is 2**doublings bins wide.
    real(c_double) :: origin = 0, bin = 0
    integer :: doublings = 0
    integer(c_int) :: values = 0 ! in the table
    integer(c_int64_t), allocatable :: keys(:), counts(:)
    ! In a part of the job: the values of all traces, which the merge draws or counts in their order,
    ! since which points are dropped, and how wide bins become, depends on those before.
    logical :: in_part = .false.
    integer(c_int64_t) :: before = 0 ! traces of the parts before
    integer(c_int64_t) :: kept = 0 ! of `values_kept`, which has room for more
    real(c_double), allocatable :: values_kept(:)
  contains
    procedure :: prepare
    procedure :: process
    procedure :: finish
    procedure :: save_part
    procedure :: merge_part
  end type plot_state

contains

  subroutine prepare(state, good)
    class(plot_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input
    integer(c_int) :: length, interval, status

    call vorn_required_input(input, good)
    if (.not. good) return
    ! The traces pass to the output, if there is one.
    call knl_get_trace_length(input, length, status)
    call knl_get_trace_sample_interval(input, interval, status)
    call knl_bld_output_trace_buffer(1, length, interval, input, status)

    call read_parameters(state%set, good)
    if (.not. good) return
    state%in_part = vorn_is_part()
    state%before = vorn_part_first()
    allocate (state%values_kept(1024))
    state%fold = state%set%mode == mode_fold
    state%title = ''
    if (allocated(state%set%title)) state%title = first_line(trim(state%set%title))
    if (state%fold) then
      call begin_fold(state, good)
    else
      call begin_series(state, good)
    end if
  end subroutine prepare

  ! Each trace passes, until one lacks the header word.
  subroutine process(state, good)
    class(plot_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input, output
    integer(c_int) :: number, no_output, status

    call knl_get_input_trace_buffer(input, 1, status)
    call consume(state, input, good)
    if (.not. good) return
    call knl_get_output_trace_buffer(output, 1, no_output)
    if (no_output == 0) call vorn_pass_trace(input, output, number)
  end subroutine process

  !> Messages and the picture, after the last trace.
  subroutine finish(state)
    class(plot_state), intent(inout) :: state

    if (state%odd > 0) call knl_send_message(knl_message_warning, &
        'traces with a value that is infinite, NaN or too large to count: ' // &
        vorn_to_text(state%odd) // '; they are left out')
    if (state%traces == state%odd) then
      if (.not. vorn_job_has_failed()) call knl_send_message(knl_message_warning, &
          'there is no trace to draw')
    else if (state%fold) then
      call finish_fold(state)
    else
      call finish_points(state)
    end if
  end subroutine finish

  ! ---- Parts of a job ----

  subroutine save_part(state, file, good)
    class(plot_state), intent(inout) :: state
    type(vorn_state_file), intent(inout) :: file
    logical, intent(inout) :: good
    integer :: i

    do i = 1, size(state%series)
      call vorn_put(file, state%series(i)%x%scaled)
      call vorn_put(file, state%series(i)%y%scaled)
    end do
    call vorn_put(file, state%values_kept(:state%kept))
  end subroutine save_part

  subroutine merge_part(state, file, good)
    class(plot_state), intent(inout) :: state
    type(vorn_state_file), intent(inout) :: file
    logical, intent(inout) :: good
    logical :: x_scaled, y_scaled
    real(c_double), allocatable :: values(:)
    integer(c_int64_t) :: first
    integer :: i, count

    count = size(state%series)
    do i = 1, count
      call vorn_get(file, x_scaled, good)
      if (good) call vorn_get(file, y_scaled, good)
      if (.not. good) return
      state%series(i)%x%scaled = state%series(i)%x%scaled .or. x_scaled
      state%series(i)%y%scaled = state%series(i)%y%scaled .or. y_scaled
    end do
    call vorn_get(file, values, good)
    if (.not. good) return
    do first = 1, size(values, kind=c_int64_t), 2 * count
      state%traces = state%traces + 1
      call take_values(state, values(first:first + count - 1), &
          values(first + count:first + 2 * count - 1))
    end do
  end subroutine merge_part

  !> Keeps the values of a trace for the merge.
  subroutine keep_values(state, x, y)
    class(plot_state), intent(inout) :: state
    real(c_double), intent(in) :: x(:), y(:)
    integer(c_int64_t) :: next

    next = state%kept + size(x) + size(y)
    if (next > size(state%values_kept, kind=c_int64_t)) &
        state%values_kept = [state%values_kept, state%values_kept, x, y]
    state%values_kept(state%kept + 1:next) = [x, y]
    state%kept = next
  end subroutine keep_values

  ! ---- Parameters. `good` is false after a message. ----

  subroutine begin_fold(state, good)
    class(plot_state), intent(inout) :: state
    logical, intent(inout) :: good
    character(len=:), allocatable :: name

    name = 'cdp'
    if (size(state%set%x) > 0) name = state%set%x(1)%text
    state%bin = 1
    ! Whole numbers lie in the middle of their bins, unless bins of another kind are wanted.
    state%origin = -0.5_c_double
    if (allocated(state%set%bin)) then
      state%bin = state%set%bin
      state%origin = 0
    end if
    good = size(state%set%x) <= 1
    if (.not. good) then
      call vorn_fail('x has ' // vorn_to_text(size(state%set%x, kind=c_int)) // &
          ' header words; give one of which values are counted')
      return
    end if
    allocate (state%series(1), state%keys(1024), state%counts(1024))
    state%series(1)%x = word_of(name, 'x')
    state%counts = 0
  end subroutine begin_fold

  subroutine begin_series(state, good)
    class(plot_state), intent(inout) :: state
    logical, intent(inout) :: good
    integer :: i

    associate (xs => state%set%x, ys => state%set%y)
      good = size(xs) <= 1 .or. size(xs) == size(ys)
      if (.not. good) then
        call vorn_fail('x and y have ' // vorn_to_text(size(xs, kind=c_int)) // ' and ' // &
            vorn_to_text(size(ys, kind=c_int)) // ' header words; give one x, or one for each y')
        return
      end if
      allocate (state%series(max(1, size(ys))))
      do i = 1, size(state%series)
        state%series(i)%x = word_of('', 'x')
        if (size(xs) > 0) state%series(i)%x = word_of(xs(min(i, size(xs)))%text, 'x')
        state%series(i)%y = word_of('', 'y')
        if (size(ys) > 0) state%series(i)%y = word_of(ys(i)%text, 'y')
        allocate (state%series(i)%xs(1024), state%series(i)%ys(1024))
      end do
    end associate
  end subroutine begin_series

  pure function word_of(name, parameter) result(word)
    character(len=*), intent(in) :: name, parameter
    type(word_state) :: word

    word%name = trim(adjustl(name))
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

  !> Takes the first trace of `input`. `good` is false after a message.
  subroutine consume(state, input, good)
    class(plot_state), intent(inout) :: state
    type(c_ptr), intent(in) :: input
    logical, intent(inout) :: good
    real(c_double) :: x(most_series), y(most_series)
    integer :: i, count

    count = size(state%series)
    state%traces = state%traces + 1
    y = 0
    do i = 1, count
      call read_word(state, input, state%series(i)%x, x(i), good)
      if (good .and. .not. state%fold) call read_word(state, input, state%series(i)%y, y(i), good)
      if (.not. good) return
    end do
    if (state%in_part) then
      call keep_values(state, x(:count), y(:count))
    else
      call take_values(state, x(:count), y(:count))
    end if
  end subroutine consume

  !> Draws or counts the values of a trace, one of each series.
  subroutine take_values(state, x, y)
    class(plot_state), intent(inout) :: state
    real(c_double), intent(in) :: x(:), y(:)
    integer :: i

    if (.not. all(abs([x, y]) <= huge(1.0_c_double))) then
      state%odd = state%odd + 1
    else if (state%fold) then
      call count_value(state, x(1))
    else
      do i = 1, size(x)
        call add_point(state%series(i), x(i), y(i))
      end do
    end if
  end subroutine take_values

  subroutine read_word(state, input, word, value, good)
    class(plot_state), intent(in) :: state
    type(c_ptr), intent(in) :: input
    type(word_state), intent(inout) :: word
    real(c_double), intent(out) :: value
    logical, intent(inout) :: good
    real(c_double) :: scalar
    integer(c_int) :: status

    value = real(state%before + state%traces, c_double)
    if (word%name == '') return
    call knl_get_trace_attribute(input, word%name, value, status)
    if (status /= 0) then
      call vorn_fail('the traces have no header word "' // word%name // &
          '"; name one that they have with ' // word%parameter)
      good = .false.
      return
    end if
    if (.not. state%set%scaled .or. scalar_of(word%name) == '') return
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

  ! A raster finer than that of the picture, over the range so far, decides which points are dropped.
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
    class(plot_state), intent(inout) :: state
    real(c_double), intent(in) :: value
    real(c_double) :: number
    real(c_double), parameter :: most = 2.0_c_double**52 ! whole numbers beyond this are no longer exact

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
    class(plot_state), intent(inout) :: state
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

  subroutine finish_points(state)
    class(plot_state), intent(inout) :: state
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
    class(plot_state), intent(in) :: state
    type(word_state), intent(in) :: word

    if (word%name == '') return
    call knl_send_message(knl_message_information, word%name // ' from ' // &
        vorn_to_text(word%least) // ' to ' // vorn_to_text(word%greatest) // ' in ' // &
        counted(state%traces - state%odd, 'trace') // scaling_of(word))
    if (word%least == 0 .and. word%greatest == 0) call knl_send_message(knl_message_warning, &
        word%name // ' is 0 in all traces; the data may not have this header word')
    call note_number(word%name // '.min', word%least)
    call note_number(word%name // '.max', word%greatest)
  end subroutine report_word

  subroutine note_number(name, value)
    character(len=*), intent(in) :: name
    real(c_double), intent(in) :: value

    call knl_set_metadata_value(knl_scope_module, 'qc.header_plot.' // name, vorn_to_text(value))
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
    class(plot_state), intent(in) :: state
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
    if (is_map(state)) title = title // achar(10) // 'scales: equal'
    call knl_create_pad(pad, vorn_pad_graph, 0_c_int, title)
    if (pad < 0) return ! the host has none
    do i = 1, size(state%series)
      call knl_newpen(pad, pens(i))
      associate (series => state%series(i))
        do j = 1, series%count
          call knl_symbol(pad, real(series%xs(j), c_float), real(series%ys(j), c_float), &
              real(state%set%size, c_float), ' ', symbols(state%set%symbol), 0.0_c_float, 0_c_int)
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
      character(len=24) :: entry
      integer :: k

      text = achar(10) // 'legend: '
      do k = 1, size(state%series)
        write (entry, '(i0, ":", i0)') pens(k), symbols(state%set%symbol)
        text = text // trim(entry) // '=' // label_of(state%series(k)%y)
        if (state%series(k)%x%name /= state%series(1)%x%name .or. &
            state%series(size(state%series))%x%name /= state%series(1)%x%name) &
            text = text // ' against ' // label_of(state%series(k)%x)
        text = text // ','
      end do
    end function legend
  end subroutine draw_points

  !> Whether both axes have one scale: distances and directions are seen as they are then.
  pure logical function is_map(state)
    class(plot_state), intent(in) :: state
    integer :: i

    is_map = state%set%scale == scale_equal
    if (state%set%scale /= scale_auto) return
    is_map = .true.
    do i = 1, size(state%series)
      associate (x => state%series(i)%x%name, y => state%series(i)%y%name)
        is_map = is_map .and. scalar_of(x) == 'scalco' .and. scalar_of(y) == 'scalco' .and. &
            (index(x, 'x') > 0 .neqv. index(y, 'x') > 0)
      end associate
    end do
  end function is_map

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
    class(plot_state), intent(inout) :: state
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
        vorn_to_text(bin))
    call report_word(state, state%series(1)%x)
    call knl_send_message(knl_message_information, 'fold from ' // vorn_to_text(least) // ' to ' // &
        vorn_to_text(greatest) // ', mean ' // rounded(mean) // ', of ' // &
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
        'fold ' // vorn_to_text(least) // ' to ' // vorn_to_text(greatest) // ', mean ' // rounded(mean))
  end subroutine finish_fold

  !> Bars, the first of which begins at `left`; the tops only where there are too many of them.
  subroutine draw_fold(state, heights, left, step, width, results)
    class(plot_state), intent(in) :: state
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
    if (step > width .or. state%origin == 0) title = title // '; bins of ' // vorn_to_text(step / width)
    if (width > 1) title = title // '; each column shows the greatest of ' // vorn_to_text(width)
    call knl_create_pad(pad, vorn_pad_graph, 0_c_int, title)
    if (pad < 0) return ! the host has none

    call knl_newpen(pad, pens(1))
    bottom = 0
    call knl_plot(pad, real(left, c_float), bottom, vorn_move)
    do i = 1, size(heights)
      top = real(heights(i), c_float)
      if (size(heights) <= 200) call knl_plot(pad, place(i - 1), bottom, vorn_draw)
      call knl_plot(pad, place(i - 1), top, vorn_draw)
      call knl_plot(pad, place(i), top, vorn_draw)
      if (size(heights) <= 200) call knl_plot(pad, place(i), bottom, vorn_draw)
    end do
    call knl_plot(pad, place(size(heights)), bottom, vorn_draw)

  contains

    real(c_float) function place(column)
      integer, intent(in) :: column

      place = real(left + column * step, c_float)
    end function place
  end subroutine draw_fold

  ! ---- Texts ----

  !> "1 trace", "2 traces"
  pure function counted(number, thing) result(text)
    integer(c_int64_t), intent(in) :: number
    character(len=*), intent(in) :: thing
    character(len=:), allocatable :: text

    text = vorn_to_text(number) // ' ' // trim(thing)
    if (number /= 1) text = text // 's'
  end function counted

  !> With at most two decimals.
  pure function rounded(value) result(text)
    real(c_double), intent(in) :: value
    character(len=:), allocatable :: text

    text = vorn_to_text(anint(100 * value) / 100)
  end function rounded

  !> With all digits, for programs.
  pure function digits_of(value) result(text)
    real(c_double), intent(in) :: value
    character(len=:), allocatable :: text
    character(len=32) :: digits

    write (digits, '(es24.15e3)') value
    text = trim(adjustl(digits))
  end function digits_of
end module header_plot_job

subroutine vorn_new_module(state)
  use header_plot_job, only: plot_state
  use vorn_kit, only: vorn_module
  implicit none
  class(vorn_module), pointer, intent(out) :: state

  allocate (plot_state :: state)
end subroutine vorn_new_module
