! Tests balance on arrays.
program balance_test
  use vorn_module_test
  implicit none
  type(vorn_test) :: test
  real, pointer :: samples(:)

  ! The window is the whole trace, whose mean amplitude is 2.
  call vorn_test_open(test, 'balance')
  call vorn_test_set(test, 'window', 1.0)
  call vorn_test_set(test, 'level', 4)
  call vorn_test_add_trace(test, 1, [1.0, -3.0, 2.0])
  call vorn_test_add_trace(test, 1, [0.0, 0.0, 0.0])
  call vorn_test_set_header(test, 1, 2, 'offset', 100)
  call vorn_test_run(test)
  call vorn_test_expect_traces(test, 1, 2)
  call vorn_test_expect_samples(test, 1, 1, [2.0, -6.0, 4.0], 1.0d-6)
  call vorn_test_expect_samples(test, 1, 2, [0.0, 0.0, 0.0], 0.0d0)
  call vorn_test_expect_header(test, 1, 2, 'offset', 100)
  call vorn_test_expect_no_leak(test)
  call vorn_test_samples(test, 1, 1, samples)
  if (.not. associated(samples)) error stop 'there is no first trace'
  call vorn_test_close(test)

  ! A window of nothing is refused.
  call vorn_test_open(test, 'balance')
  call vorn_test_set(test, 'window', 0.0)
  call vorn_test_set_inputs(test, 1)
  call vorn_test_run(test)
  call vorn_test_expect_failure(test, 'window is 0 s')
  call vorn_test_close(test)
end program balance_test
