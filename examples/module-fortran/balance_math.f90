! The arithmetic of balance, which knows nothing of the kernel.
module balance_math
  use, intrinsic :: iso_c_binding, only: c_double, c_float
  implicit none
  private
  public :: balance_samples

contains

  !> Scales each sample so that the mean amplitude of the window around it, as far as the trace goes,
  !> becomes `level`. The window has `half` samples to either side. Where all of it is 0 nothing
  !> changes. `sums` is room for one element more than there are samples.
  pure subroutine balance_samples(samples, half, level, sums)
    real(c_float), intent(inout) :: samples(:)
    integer, intent(in) :: half
    real(c_double), intent(in) :: level
    real(c_double), intent(inout) :: sums(0:)
    integer :: i, first, last
    real(c_double) :: mean

    sums(0) = 0
    do i = 1, size(samples)
      sums(i) = sums(i - 1) + abs(samples(i))
    end do
    do i = 1, size(samples)
      first = max(i - half, 1)
      last = min(i + half, size(samples))
      mean = (sums(last) - sums(first - 1)) / (last - first + 1)
      if (mean > 0) samples(i) = real(samples(i) * (level / mean), c_float)
    end do
  end subroutine balance_samples
end module balance_math
