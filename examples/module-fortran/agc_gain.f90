! The arithmetic of agc, which knows nothing of the kernel.
module agc_gain
  use, intrinsic :: iso_c_binding, only: c_double, c_float, c_int
  implicit none
  private
  public :: agc_settings, balance

  type, bind(C) :: agc_settings
    integer(c_int) :: half  ! samples of the window to either side of a sample
    real(c_float) :: level  ! mean amplitude to reach
  end type agc_settings

contains

  !> Scales each sample so that the mean amplitude of the window around it, as far as the trace goes,
  !> becomes `settings%level`. Where all of it is 0 nothing changes. `sums` is room for one element
  !> more than there are samples.
  pure subroutine balance(samples, settings, sums)
    real(c_float), intent(inout) :: samples(:)
    type(agc_settings), intent(in) :: settings
    real(c_double), intent(inout) :: sums(0:)
    integer :: i, first, last
    real(c_double) :: mean

    sums(0) = 0
    do i = 1, size(samples)
      sums(i) = sums(i - 1) + abs(samples(i))
    end do
    do i = 1, size(samples)
      first = max(i - settings%half, 1)
      last = min(i + settings%half, size(samples))
      mean = (sums(last) - sums(first - 1)) / (last - first + 1)
      if (mean > 0) samples(i) = real(samples(i) * (settings%level / mean), c_float)
    end do
  end subroutine balance
end module agc_gain
