! The arithmetic of header_plot, independent of the kernel. C programs can call it, as its
! tests do.
!
! Traces are counted in a table with open addressing: `capacity` places, a power of two, of keys and
! of counts, where a count of 0 is a free place.
module header_plot_math
  use, intrinsic :: iso_c_binding, only: c_double, c_int, c_int64_t
  implicit none
  private
  public :: header_plot_scaled, header_plot_thin, header_plot_count, header_plot_collect, &
      header_plot_columns, header_plot_round_up

contains

  !> A coordinate or an elevation with its scalar: a positive one multiplies, a negative one
  !> divides, 0 stands for 1.
  pure function header_plot_scaled(value, scalar) result(scaled) bind(C, name='header_plot_scaled')
    real(c_double), value, intent(in) :: value, scalar
    real(c_double) :: scaled

    scaled = value
    if (scalar > 0) scaled = value * scalar
    if (scalar < 0) scaled = value / abs(scalar)
  end function header_plot_scaled

  !> Keeps of the points (`x`, `y`) the first one in each cell of a raster of `columns` by `rows`
  !> cells over all points, in their order, and makes the raster coarser by halves until no more
  !> than `most` (at least 1) are left. `count` is how many there were, and are.
  subroutine header_plot_thin(count, x, y, columns, rows, most) bind(C, name='header_plot_thin')
    integer(c_int), intent(inout) :: count
    real(c_double), intent(inout) :: x(count), y(count)
    integer(c_int), value, intent(in) :: columns, rows, most
    logical(1), allocatable :: taken(:, :)
    real(c_double) :: left, right, bottom, top
    integer :: across, up, i, kept, column, row

    if (count < 1) return
    left = minval(x)
    right = maxval(x)
    bottom = minval(y)
    top = maxval(y)
    across = columns
    up = rows
    do
      allocate (taken(0:across - 1, 0:up - 1), source=.false._1)
      kept = 0
      do i = 1, count
        column = cell(x(i), left, right, across)
        row = cell(y(i), bottom, top, up)
        if (taken(column, row)) cycle
        taken(column, row) = .true.
        kept = kept + 1
        x(kept) = x(i)
        y(kept) = y(i)
      end do
      deallocate (taken)
      count = kept
      if (count <= most) return
      across = max(1, across / 2)
      up = max(1, up / 2)
    end do
  end subroutine header_plot_thin

  ! Of `cells` cells between two values, from 0, the one that a value lies in.
  pure integer function cell(value, from, to, cells)
    real(c_double), intent(in) :: value, from, to
    integer, intent(in) :: cells

    cell = 0
    ! Halved, the distance of any two numbers does not overflow.
    if (to > from) cell = min(cells - 1, &
        int((value / 2 - from / 2) / (to / 2 - from / 2) * cells))
  end function cell

  !> Adds `times` (at least 1) to the count of `key`. Returns 1 when the key is new, else 0. One of the
  !> places at least must be free.
  integer(c_int) function header_plot_count(capacity, keys, counts, key, times) &
      bind(C, name='header_plot_count')
    integer(c_int), value, intent(in) :: capacity
    integer(c_int64_t), intent(inout) :: keys(0:capacity - 1), counts(0:capacity - 1)
    integer(c_int64_t), value, intent(in) :: key, times
    integer(c_int64_t) :: mixed
    integer :: place

    mixed = ieor(ieor(key, shiftr(key, 13)), shiftr(key, 29))
    place = int(iand(mixed, int(capacity - 1, c_int64_t)))
    do while (counts(place) > 0 .and. keys(place) /= key)
      place = iand(place + 1, capacity - 1)
    end do
    header_plot_count = merge(1_c_int, 0_c_int, counts(place) == 0)
    keys(place) = key
    counts(place) = counts(place) + times
  end function header_plot_count

  !> Moves what the table holds to its front, by ascending keys, and returns their number. It is
  !> no longer a table.
  integer(c_int) function header_plot_collect(capacity, keys, counts) &
      bind(C, name='header_plot_collect')
    integer(c_int), value, intent(in) :: capacity
    integer(c_int64_t), intent(inout) :: keys(capacity), counts(capacity)
    integer :: i, used

    used = 0
    do i = 1, capacity
      if (counts(i) == 0) cycle
      used = used + 1
      keys(used) = keys(i)
      counts(used) = counts(i)
    end do
    counts(used + 1:) = 0
    call sort(used, keys, counts)
    header_plot_collect = used
  end function header_plot_collect

  ! By insertion over shrinking distances, those of M. Ciura (2001) and what 2.25 makes of the last.
  subroutine sort(count, keys, counts)
    integer, intent(in) :: count
    integer(c_int64_t), intent(inout) :: keys(count), counts(count)
    integer, parameter :: distances(18) = [2379165, 1057407, 469959, 208871, 92832, 41259, 18337, &
        8150, 3622, 1610, 701, 301, 132, 57, 23, 10, 4, 1]
    integer(c_int64_t) :: key, number
    integer :: i, j, pass, distance

    do pass = 1, size(distances)
      distance = distances(pass)
      do i = distance + 1, count
        key = keys(i)
        number = counts(i)
        j = i
        do while (j > distance)
          if (keys(j - distance) <= key) exit
          keys(j) = keys(j - distance)
          counts(j) = counts(j - distance)
          j = j - distance
        end do
        keys(j) = key
        counts(j) = number
      end do
    end do
  end subroutine sort

  !> Spreads counts by ascending keys over `columns` columns of `width` keys each, from the first
  !> key on. `heights` are the greatest counts in each, 0 where there is none.
  pure subroutine header_plot_columns(count, keys, counts, columns, width, heights) &
      bind(C, name='header_plot_columns')
    integer(c_int), value, intent(in) :: count, columns
    integer(c_int64_t), intent(in) :: keys(count), counts(count)
    integer(c_int64_t), value, intent(in) :: width
    integer(c_int64_t), intent(inout) :: heights(columns)
    integer :: i, column

    heights = 0
    do i = 1, count
      column = int((keys(i) - keys(1)) / width) + 1
      heights(column) = max(heights(column), counts(i))
    end do
  end subroutine header_plot_columns

  !> The next number from `value` upwards that is 1, 1.2, 1.5, 2, 2.5, 3, 4, 5, 6 or 8 times a power
  !> of ten; 1 for what is not above 0.
  pure function header_plot_round_up(value) result(rounded) bind(C, name='header_plot_round_up')
    real(c_double), value, intent(in) :: value
    real(c_double) :: rounded, power
    real(c_double), parameter :: steps(11) = [1.0_c_double, 1.2_c_double, 1.5_c_double, &
        2.0_c_double, 2.5_c_double, 3.0_c_double, 4.0_c_double, 5.0_c_double, 6.0_c_double, &
        8.0_c_double, 10.0_c_double]
    real(c_double), parameter :: slack = 1.0_c_double + 1.0e-12_c_double
    integer :: i

    rounded = 1
    if (.not. (value > 0 .and. value <= huge(value))) return
    power = 10.0_c_double**floor(log10(value))
    do i = 1, size(steps) - 1
      if (value <= steps(i) * power * slack) exit
    end do
    rounded = steps(i) * power
  end function header_plot_round_up
end module header_plot_math
