! Copies traces, and counts from 0 what is counted from 1 in Fortran: the parameter `mistake` says what.

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
  use, intrinsic :: iso_c_binding, only: c_float, c_int, c_ptr
  use vorn_knl
  implicit none
  type(c_ptr) :: input, output, wrong
  real(c_float), pointer :: samples(:)
  character(len=32) :: mistake
  integer(c_int) :: status
  logical :: found

  process = 0
  mistake = ' '
  call knl_get_module_parameter('mistake', mistake, found)
  call knl_get_input_trace_buffer(input, 1, status)
  call knl_get_output_trace_buffer(output, 1, status)
  call knl_copy_trace_to_trace(input, output, .true., .true., status)
  select case (mistake)
  case ('channel')
    call knl_get_input_trace_buffer(wrong, 0, status)
  case ('trace')
    call knl_get_trace_samples(input, samples, status, 0)
  end select
end function process

integer function postprocess()
  implicit none
  postprocess = 0
end function postprocess
