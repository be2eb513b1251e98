! The arithmetic of agc, independent of the kernel. C programs can call it, as its tests do.
module agc_math
  use, intrinsic :: iso_c_binding, only: c_double, c_float, c_int
  implicit none
  private
  public :: agc_balance

  ! What is measured in a window: the root of the mean square, or the mean absolute amplitude.
  integer(c_int), parameter, public :: agc_rms = 1, agc_mean = 2

contains

  !> Scales each sample so that the measure of the window around it, `half` samples to either side
  !> as far as the trace goes, becomes `level`. Where the window holds only zeros nothing changes.
  !> Samples that are infinite or NaN count as zeros and stay as they are.
  !>
  !> A window's sum is composed of two partial sums, of blocks that are as long as a window:
  !> every window begins in one block and ends in the same or the next. Nothing is ever subtracted,
  !> so that a spike has no effect on windows without it, as it would have in a running sum.
  !>
  !> `forward` and `backward` are work arrays for the partial sums.
  pure subroutine agc_balance(samples, count, half, measure, level, forward, backward) &
      bind(C, name='agc_balance')
    integer(c_int), value, intent(in) :: count, half, measure
    real(c_float), intent(inout) :: samples(count)
    real(c_double), value, intent(in) :: level
    real(c_double), intent(inout) :: forward(count), backward(count)
    integer :: width, reach, i, first, last, place
    real(c_double) :: total

    if (count < 1) return
    reach = min(half, count) ! longer windows hold no more
    width = 2 * reach + 1
    call sum_blocks(samples, width, measure, forward, backward)

    place = 0 ! of the window's first sample in its block
    do i = 1, count
      first = max(i - reach, 1)
      last = min(i + reach, count)
      if (first > 1) place = merge(0, place + 1, place + 1 == width)
      if (place == 0) then
        total = forward(last)
      else if (place + last - first < width) then
        total = backward(first) ! cut by the end of the trace
      else
        total = backward(first) + forward(last)
      end if
      if (.not. total > 0) cycle
      total = total / (last - first + 1)
      if (measure == agc_rms) total = sqrt(total)
      samples(i) = real(samples(i) * (level / total), c_float)
    end do
  end subroutine agc_balance

  !> For each sample, the sum from the beginning of its block up to it, and from it to the block's
  !> end.
  pure subroutine sum_blocks(samples, width, measure, forward, backward)
    real(c_float), intent(in) :: samples(:)
    integer, intent(in) :: width
    integer(c_int), intent(in) :: measure
    real(c_double), intent(inout) :: forward(:), backward(:)
    integer :: i, first, last
    real(c_double) :: total

    first = 1
    do while (first <= size(samples))
      last = first + min(width - 1, size(samples) - first)
      total = 0
      do i = first, last
        total = total + amount(samples(i), measure)
        forward(i) = total
      end do
      total = 0
      do i = last, first, -1
        total = total + amount(samples(i), measure)
        backward(i) = total
      end do
      first = last + 1
    end do
  end subroutine sum_blocks

  !> What a sample adds to a sum.
  elemental function amount(sample, measure)
    real(c_float), intent(in) :: sample
    integer(c_int), intent(in) :: measure
    real(c_double) :: amount

    amount = abs(real(sample, c_double))
    if (.not. amount <= huge(sample)) amount = 0
    if (measure == agc_rms) amount = amount * amount
  end function amount
end module agc_math
