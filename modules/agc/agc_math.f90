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
  !> Sums are in double precision. So are roots and divisions, where the squares of some amplitudes
  !> are beyond the range of single precision; else they are in single precision, twice as many at a time.
  !>
  !> `forward` and `backward` are work arrays for the partial sums.
  pure subroutine agc_balance(samples, count, half, measure, level, forward, backward) &
      bind(C, name='agc_balance')
    integer(c_int), value, intent(in) :: count, half, measure
    real(c_float), intent(inout) :: samples(count)
    real(c_double), value, intent(in) :: level
    real(c_double), intent(inout) :: forward(count), backward(count)
    integer :: width, reach, i, tail
    real(c_double) :: whole, mean(1)

    if (count < 1) return
    reach = min(half, count) ! longer windows hold no more
    width = 2 * reach + 1
    call measure_samples(samples, measure, forward, backward)
    call sum_blocks(width, forward, backward)
    whole = forward(count) ! of the last block

    ! Windows that begin at the second sample or later; the array becomes their means, by that sample.
    call join_blocks(width, count, forward, backward)
    tail = max(count - 2 * reach + 1, 2) ! the first window that the end of the trace cuts
    do i = tail, min((count - 1) / width * width, count - reach)
      backward(i) = backward(i) + whole
    end do
    do i = 2, tail - 1
      backward(i) = backward(i) * (1.0_c_double / width)
    end do
    do i = tail, count - reach
      backward(i) = backward(i) / (count - i + 1)
    end do
    if (count > reach + 1) call scale(samples(reach + 2:), backward(2:count - reach), measure, level)

    ! Windows that begin with the trace, and end before it or with it.
    do i = reach + 1, min(2 * reach + 1, count)
      forward(i) = forward(i) / i
    end do
    i = min(reach + 1, count - reach)
    call scale(samples(:i), forward(reach + 1:reach + i), measure, level)
    mean = whole / count
    do i = max(count - reach, 0) + 1, min(reach + 1, count)
      call scale(samples(i:i), mean, measure, level)
    end do
  end subroutine agc_balance

  !> What each sample adds to a sum, twice.
  pure subroutine measure_samples(samples, measure, forward, backward)
    real(c_float), intent(in), contiguous :: samples(:)
    integer(c_int), intent(in) :: measure
    real(c_double), intent(inout), contiguous :: forward(:), backward(:)
    real(c_double) :: amount
    integer :: i

    do i = 1, size(samples)
      amount = abs(real(samples(i), c_double))
      amount = merge(amount, 0.0_c_double, amount <= huge(samples))
      forward(i) = amount
      backward(i) = amount
    end do
    if (measure /= agc_rms) return
    do i = 1, size(samples)
      forward(i) = forward(i) * forward(i)
      backward(i) = backward(i) * backward(i)
    end do
  end subroutine measure_samples

  !> For each sample, the sum from the beginning of its block up to it, and from it to the block's
  !> end, in place of the amounts. An addition waits for the one before it: four sums, of two blocks,
  !> take hardly longer than one.
  pure subroutine sum_blocks(width, forward, backward)
    integer, intent(in) :: width
    real(c_double), intent(inout), contiguous :: forward(:), backward(:)
    integer :: first, second, last, i
    real(c_double) :: sums(4)

    first = 1
    do while (first <= size(forward))
      second = first + width
      last = second + width - 1
      if (last > size(forward)) exit
      sums = 0
      do i = 0, width - 1
        sums(1) = sums(1) + forward(first + i)
        forward(first + i) = sums(1)
        sums(2) = sums(2) + forward(second + i)
        forward(second + i) = sums(2)
        sums(3) = sums(3) + backward(second - 1 - i)
        backward(second - 1 - i) = sums(3)
        sums(4) = sums(4) + backward(last - i)
        backward(last - i) = sums(4)
      end do
      first = last + 1
    end do
    do while (first <= size(forward))
      last = min(first + width - 1, size(forward))
      sums = 0
      do i = 0, last - first
        sums(1) = sums(1) + forward(first + i)
        forward(first + i) = sums(1)
        sums(2) = sums(2) + backward(last - i)
        backward(last - i) = sums(2)
      end do
      first = last + 1
    end do
  end subroutine sum_blocks

  !> Adds to the sums from samples to the end of their blocks what their windows have of the next block;
  !> of windows that the trace does not cut. A window that begins with its block has no more.
  pure subroutine join_blocks(width, count, forward, backward)
    integer, intent(in) :: width, count
    real(c_double), intent(in), contiguous :: forward(:)
    real(c_double), intent(inout), contiguous :: backward(:)
    integer :: first, i

    do first = 1, count - width + 1, width
      do i = first + 1, min(first + width - 1, count - width + 1)
        backward(i) = backward(i) + forward(i + width - 1)
      end do
    end do
  end subroutine join_blocks

  !> Scales samples by level over amplitude, where means of their windows are given: of squares, or of
  !> absolute values. Samples with a mean of 0 stay.
  pure subroutine scale(samples, means, measure, level)
    real(c_float), intent(inout), contiguous :: samples(:)
    real(c_double), intent(in), contiguous :: means(:)
    integer(c_int), intent(in) :: measure
    real(c_double), intent(in) :: level
    real(c_double), parameter :: least = 1e-30_c_double, most = 1e30_c_double
    interface
      ! With the widest vectors that the processor has.
      pure integer(c_int) function beyond(values, number, lowest, highest) &
          bind(C, name='sample_loops_beyond')
        import :: c_double, c_int
        integer(c_int), value, intent(in) :: number
        real(c_double), intent(in) :: values(number)
        real(c_double), value, intent(in) :: lowest, highest
      end function beyond
      pure subroutine balance(values, divisors, number, unit, has_root) &
          bind(C, name='sample_loops_balance')
        import :: c_double, c_float, c_int
        integer(c_int), value, intent(in) :: number, has_root
        real(c_float), intent(inout) :: values(number)
        real(c_double), intent(in) :: divisors(number)
        real(c_float), value, intent(in) :: unit
      end subroutine balance
    end interface
    integer(c_int) :: count

    count = size(means, kind=c_int)
    ! Where a mean is 0, samples are, or they are not finite: any gain leaves them as they are.
    if (level >= 1e-8_c_double .and. level <= 1e8_c_double .and. &
        beyond(means, count, least, most) == 0) then
      call balance(samples, means, count, real(level, c_float), merge(1_c_int, 0_c_int, &
          measure == agc_rms))
    else
      call scale_any(samples, means, measure, level)
    end if
  end subroutine scale

  !> The same for any range.
  pure subroutine scale_any(samples, means, measure, level)
    real(c_float), intent(inout) :: samples(:)
    real(c_double), intent(in) :: means(:)
    integer(c_int), intent(in) :: measure
    real(c_double), intent(in) :: level
    real(c_double) :: amplitude
    integer :: i

    do i = 1, size(means)
      if (.not. means(i) > 0) cycle
      amplitude = means(i)
      if (measure == agc_rms) amplitude = sqrt(amplitude)
      samples(i) = real(samples(i) * (level / amplitude), c_float)
    end do
  end subroutine scale_any
end module agc_math
