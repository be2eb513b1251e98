! The arithmetic of mute, independent of the kernel. C programs can call it, as its tests do.
module mute_math
  use, intrinsic :: iso_c_binding, only: c_double, c_float, c_int
  implicit none
  private
  public :: mute_interpolate, mute_edge, mute_between

  real(c_double), parameter :: pi = 3.14159265358979323846_c_double

contains

  !> The value at `position` on the straight lines through the points (`positions`, `values`), of
  !> which there is at least one, in strictly ascending order. Before the first and after the last
  !> point the value is that point's.
  pure function mute_interpolate(position, positions, values, count) result(value) &
      bind(C, name='mute_interpolate')
    real(c_double), value, intent(in) :: position
    integer(c_int), value, intent(in) :: count
    real(c_double), intent(in) :: positions(count), values(count)
    real(c_double) :: value
    integer :: i

    if (position <= positions(1)) then
      value = values(1)
      return
    end if
    do i = 2, count
      if (position > positions(i)) cycle
      value = values(i - 1) + (values(i) - values(i - 1)) * &
          ((position - positions(i - 1)) / (positions(i) - positions(i - 1)))
      return
    end do
    value = values(count)
  end function mute_interpolate

  !> A time as a number of samples after the one at `start`; all three in seconds. A number that
  !> differs from a whole one by rounding only is that one, so that 0.4 s with an interval of 4 ms
  !> is sample 100 and not just beside it.
  pure function mute_edge(time, start, interval) result(edge) bind(C, name='mute_edge')
    real(c_double), value, intent(in) :: time, start, interval
    real(c_double) :: edge

    edge = (time - start) / interval
    if (abs(edge - anint(edge)) < 1.0e-6_c_double) edge = anint(edge)
  end function mute_edge

  !> Sets the samples between `first` and `last` to zero, whatever they are. Those at most `taper`
  !> outside are multiplied by weights that rise from 0 at `first` and at `last` to 1 as half a
  !> period of a cosine. All three are numbers of samples from the first one, which is 0, and need
  !> not be whole; a taper of 0 is none, and samples exactly at `first` or `last` stay then. Nothing
  !> happens when `first` is not below `last`.
  pure subroutine mute_between(samples, count, first, last, taper) bind(C, name='mute_between')
    integer(c_int), value, intent(in) :: count
    real(c_float), intent(inout) :: samples(0:count - 1)
    real(c_double), value, intent(in) :: first, last, taper
    integer :: i
    real(c_double) :: weight

    if (count < 1 .or. .not. first < last) return
    do i = within(first - taper), within(last + taper)
      weight = max(rise(first - i, taper), rise(i - last, taper))
      if (weight > 0) then
        samples(i) = real(samples(i) * weight, c_float)
      else
        samples(i) = 0
      end if
    end do

  contains

    !> The sample at or before a place, as far as the trace goes.
    pure integer function within(place)
      real(c_double), intent(in) :: place

      within = floor(min(max(place, 0.0_c_double), count - 1.0_c_double))
    end function within
  end subroutine mute_between

  !> The weight of a sample `distance` outside of the muted zone.
  pure real(c_double) function rise(distance, taper)
    real(c_double), intent(in) :: distance, taper

    if (distance < 0) then
      rise = 0
    else if (distance < taper) then
      rise = (1 - cos(pi * distance / taper)) / 2
    else
      rise = 1
    end if
  end function rise
end module mute_math
