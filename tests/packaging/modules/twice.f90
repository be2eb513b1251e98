! Doubles every sample.

integer function preprocess()
  use, intrinsic :: iso_c_binding, only: c_ptr
  use vorn_knl
  implicit none
  type(c_ptr) :: input
  integer :: length, interval

  call knl_get_input_trace_buffer(input, 1, preprocess)
  call knl_get_trace_length(input, length, preprocess)
  call knl_get_trace_sample_interval(input, interval, preprocess)
  call knl_bld_output_trace_buffer(1, length, interval, input, preprocess)
end function preprocess

integer function process()
  use, intrinsic :: iso_c_binding, only: c_ptr
  use vorn_knl
  implicit none
  type(c_ptr) :: input, output
  real, pointer :: samples(:)

  call knl_get_input_trace_buffer(input, 1, process)
  call knl_get_output_trace_buffer(output, 1, process)
  call knl_copy_trace_to_trace(input, output, .true., .true., process)
  call knl_get_trace_samples(output, samples, process)
  if (process == 0) samples = 2 * samples
end function process

integer function postprocess()
  implicit none

  postprocess = 0
end function postprocess
