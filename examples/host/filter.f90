! filter: replaces each sample by the mean of the samples around it.
!
! Parameter: WINDOW  number of samples to average; an even number is raised to the next odd one

module moving_average
  implicit none

contains

  ! The means of `samples` over windows of 2 * reach + 1 samples, which end where the trace ends.
  pure function smoothed(samples, reach) result(means)
    real, intent(in) :: samples(:)
    integer, intent(in) :: reach
    real :: means(size(samples))
    integer :: i, first, last

    do i = 1, size(samples)
      first = max(1, i - reach)
      last = min(size(samples), i + reach)
      means(i) = sum(samples(first:last)) / (last - first + 1)
    end do
  end function smoothed
end module moving_average

! The output has the length, the sample interval and the attributes of the input.
integer function preprocess()
  use, intrinsic :: iso_c_binding, only: c_ptr
  use vorn_knl
  implicit none
  type(c_ptr) :: input
  integer :: length, interval

  call knl_get_input_trace_buffer(input, 1, preprocess)
  if (preprocess /= 0) return
  call knl_get_trace_length(input, length, preprocess)
  call knl_get_trace_sample_interval(input, interval, preprocess)
  call knl_bld_output_trace_buffer(1, length, interval, input, preprocess)
end function preprocess

! One trace in, one trace out. The copy includes the flag, and with it the end of data.
integer function process()
  use, intrinsic :: iso_c_binding, only: c_ptr
  use vorn_knl
  use moving_average, only: smoothed
  implicit none
  type(c_ptr) :: input, output
  real, pointer :: samples(:)
  integer :: window, number, status
  logical :: found

  window = 3
  call knl_get_module_parameter('WINDOW', window, found)

  call knl_get_input_trace_buffer(input, 1, status)
  call knl_get_output_trace_buffer(output, 1, status)
  call knl_get_number_of_traces(output, number, status)
  call knl_copy_trace_to_trace(input, output, .true., .true., status, 1, number + 1)

  call knl_get_trace_samples(output, samples, status, number + 1)
  if (status == 0) samples = smoothed(samples, max(0, window / 2))
  process = 0
end function process

integer function postprocess()
  implicit none

  postprocess = 0
end function postprocess
