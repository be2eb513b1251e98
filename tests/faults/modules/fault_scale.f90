! Doubles the samples and adds an attribute; what the kernel throws passes through its frames.
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

integer function process()
  use, intrinsic :: iso_c_binding, only: c_ptr
  use vorn_knl
  implicit none
  type(c_ptr) :: input, output
  real, pointer :: samples(:)
  integer :: number, status

  process = 0
  number = 0
  call knl_get_input_trace_buffer(input, 1, status)
  call knl_get_output_trace_buffer(output, 1, status)
  call knl_get_trace_attribute(input, 'tracl', number, status)
  call knl_copy_trace_to_trace(input, output, .true., .true., status)
  call knl_get_trace_samples(output, samples, status)
  if (status == 0) then
    samples = 2 * samples
  else
    call knl_send_message(knl_message_fatal, 'a trace has no samples')
  end if
  call knl_set_trace_attribute(output, 'extra', 3 * number, status)
end function process

integer function postprocess()
  implicit none

  postprocess = 0
end function postprocess
