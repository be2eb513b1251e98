! The arithmetic of stack, independent of the kernel. C programs can call it, as its tests
! do.
module stack_math
  use, intrinsic :: iso_c_binding, only: c_double, c_float, c_int
  implicit none
  private
  public :: stack_add, stack_normalise, stack_different

  ! What sums are divided by: the number of traces that are not zero there, its root, the number of
  ! all traces, nothing.
  integer(c_int), parameter, public :: stack_live = 1, stack_sqrt = 2, stack_count = 3, &
      stack_none = 4

contains

  !> Adds a trace to sums, and 1 to `live` where its samples are not zero.
  subroutine stack_add(samples, count, sums, live) bind(C, name='stack_add')
    integer(c_int), value, intent(in) :: count
    real(c_float), intent(in) :: samples(count)
    real(c_double), intent(inout) :: sums(count)
    integer(c_int), intent(inout) :: live(count)
    interface
      ! With the widest vectors that the processor has.
      subroutine add(values, number, to, counts) bind(C, name='sample_loops_add')
        import :: c_double, c_float, c_int
        integer(c_int), value, intent(in) :: number
        real(c_float), intent(in) :: values(number)
        real(c_double), intent(inout) :: to(number)
        integer(c_int), intent(inout) :: counts(number)
      end subroutine add
    end interface

    call add(samples, count, sums, live)
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

  !> How many different values there are. Leaves them in ascending order.
  integer(c_int) function stack_different(values, count) bind(C, name='stack_different')
    integer(c_int), value, intent(in) :: count
    real(c_double), intent(inout) :: values(count)
    real(c_double) :: greatest
    integer :: i

    do i = count / 2, 1, -1
      call sift(values, i)
    end do
    do i = count, 2, -1
      greatest = values(1)
      values(1) = values(i)
      values(i) = greatest
      call sift(values(:i - 1), 1)
    end do
    stack_different = min(count, 1_c_int)
    do i = 2, count
      if (values(i) /= values(i - 1)) stack_different = stack_different + 1
    end do
  end function stack_different

  !> Moves the value at `top` down a heap, in which none is below a smaller one otherwise.
  pure subroutine sift(values, top)
    real(c_double), intent(inout) :: values(:)
    integer, intent(in) :: top
    real(c_double) :: moved
    integer :: place, child

    moved = values(top)
    place = top
    child = 2 * place
    do while (child <= size(values))
      if (child < size(values)) child = child + merge(1, 0, values(child + 1) > values(child))
      if (.not. values(child) > moved) exit
      values(place) = values(child)
      place = child
      child = 2 * place
    end do
    values(place) = moved
  end subroutine sift
end module stack_math
