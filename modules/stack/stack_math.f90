! The arithmetic of stack, which knows nothing of the kernel. C programs can call it, as its tests
! do.
module stack_math
  use, intrinsic :: iso_c_binding, only: c_double, c_float, c_int
  implicit none
  private
  public :: stack_add, stack_normalise

  ! What sums are divided by: the number of traces that are not zero there, its root, the number of
  ! all traces, nothing.
  integer(c_int), parameter, public :: stack_live = 1, stack_sqrt = 2, stack_count = 3, &
      stack_none = 4

contains

  !> Adds a trace to sums, and 1 to `live` where its samples are not zero.
  pure subroutine stack_add(samples, count, sums, live) bind(C, name='stack_add')
    integer(c_int), value, intent(in) :: count
    real(c_float), intent(in) :: samples(count)
    real(c_double), intent(inout) :: sums(count)
    integer(c_int), intent(inout) :: live(count)
    integer :: i

    do i = 1, count
      sums(i) = sums(i) + samples(i)
      live(i) = live(i) + merge(1, 0, samples(i) /= 0) ! also what is no number
    end do
  end subroutine stack_add

  !> The stack of `traces` traces from their sums. Zero where no trace is live.
  pure subroutine stack_normalise(sums, live, count, traces, normalisation, samples) &
      bind(C, name='stack_normalise')
    integer(c_int), value, intent(in) :: count, traces, normalisation
    real(c_double), intent(in) :: sums(count)
    integer(c_int), intent(in) :: live(count)
    real(c_float), intent(inout) :: samples(count)
    integer :: i

    select case (normalisation)
    case (stack_live)
      do i = 1, count
        samples(i) = real(sums(i) / max(live(i), 1), c_float)
      end do
    case (stack_sqrt)
      do i = 1, count
        samples(i) = real(sums(i) / sqrt(real(max(live(i), 1), c_double)), c_float)
      end do
    case (stack_count)
      samples = real(sums / max(traces, 1), c_float)
    case default
      samples = real(sums, c_float)
    end select
  end subroutine stack_normalise
end module stack_math
