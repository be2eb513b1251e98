! Stops at its first trace: with an error where the parameter `error` is 1.

integer function preprocess()
  use, intrinsic :: iso_c_binding, only: c_int, c_ptr
  use vorn_knl
  implicit none
  type(c_ptr) :: input
  integer(c_int) :: length, interval, status

  preprocess = 0
  call knl_get_input_trace_buffer(input, 1, status)
  call knl_get_trace_length(input, length, status)
  call knl_get_trace_sample_interval(input, interval, status)
  call knl_bld_output_trace_buffer(1, length, interval, input, status)
end function preprocess

integer function process()
  use, intrinsic :: iso_c_binding, only: c_int
  use vorn_knl
  implicit none
  integer(c_int) :: with_error
  logical :: found

  with_error = 0
  process = 0
  call knl_get_module_parameter('error', with_error, found)
  if (with_error == 1) error stop 3
  stop
end function process

integer function postprocess()
  implicit none
  postprocess = 0
end function postprocess
