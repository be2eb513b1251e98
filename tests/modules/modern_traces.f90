! The module vorn_knl, second part: trace attributes and their schema, trace buffers and trace sets.
! The job's schema is in ModuleInterfaceJobTest.cpp; its source emits three traces of four samples.
include 'checks.inc'

module modern_trace_checks
  use, intrinsic :: iso_c_binding, only: c_loc, c_associated, c_double, c_float, c_int, c_int64_t, &
      c_null_ptr, c_ptr
  use checks
  use vorn_knl
  implicit none
  private
  public :: query_schema, write_attributes, read_attributes, use_lists, find_buffers, build_buffers
  public :: change_geometry, use_samples, copy_traces, flag_traces, flag_channel, pass_trace_on

  integer(c_int64_t), parameter :: big = 1099511627776_c_int64_t ! 2 to the power of 40

contains

  subroutine query_schema()
    integer(c_int) :: number
    character(len=8) :: text

    call knl_get_trace_attribute_type('f64s  ', number)
    call check_int(5, number, 'type of f64s')
    call knl_get_trace_attribute_dimension('f64s', number)
    call check_int(2, number, 'dimension of f64s')
    call knl_get_trace_attribute_type('unknown', number)
    call check_int(-1, number, 'type of an unknown attribute')
    text = 'before'
    call knl_get_trace_attribute_description('i32', text)
    call check_text('before', text, 'a description, which is never handed out')
  end subroutine query_schema

  ! Of the first trace without a number, of the second one with it.
  subroutine write_attributes(set)
    type(c_ptr), intent(in) :: set
    integer(c_int) :: status

    call knl_define_trace_attribute(set, 'i32', status)
    call check_int(1, status, 'status of defining')
    call knl_is_trace_attribute_exist(set, 'i32', status)
    call check_int(0, status, 'status of an attribute that exists')
    call knl_is_trace_attribute_exist(set, 'i64', status)
    call check_int(1, status, 'status of an attribute that does not exist')

    call knl_set_trace_attribute(set, 'i32', 42, status)
    call check_int(1, status, 'status of setting i32')
    call knl_set_trace_attribute(set, 'i64', big, status)
    call check_int(1, status, 'status of setting i64')
    call knl_set_trace_attribute(set, 'f32', 1.5, status)
    call check_int(1, status, 'status of setting f32')
    call knl_set_trace_attribute(set, 'f64', 0.1_c_double, status)
    call check_int(1, status, 'status of setting f64')
    call knl_set_trace_attribute(set, 'text', 'some text', status)
    call check_int(1, status, 'status of setting text')
    call knl_set_trace_attribute(set, 'i32s', [1, -2, 3], status)
    call check_int(1, status, 'status of setting i32s')
    call knl_set_trace_attribute(set, 'i64s', [big, -1_c_int64_t], status)
    call check_int(1, status, 'status of setting i64s')
    call knl_set_trace_attribute(set, 'f32s', [0.5, 1.5, 2.5, 3.5], status)
    call check_int(1, status, 'status of setting f32s')
    call knl_set_trace_attribute(set, 'f64s', [0.1_c_double, 0.2_c_double], status)
    call check_int(1, status, 'status of setting f64s')
    call knl_set_trace_attribute(set, 'i32', 42, status, 2)
    call check_int(1, status, 'status of setting i32 of trace 2')
    call knl_set_trace_attribute(set, 'i64', big, status, 2)
    call check_int(1, status, 'status of setting i64 of trace 2')
    call knl_set_trace_attribute(set, 'f32', 1.5, status, 2)
    call check_int(1, status, 'status of setting f32 of trace 2')
    call knl_set_trace_attribute(set, 'f64', 0.1_c_double, status, 2)
    call check_int(1, status, 'status of setting f64 of trace 2')
    call knl_set_trace_attribute(set, 'text', 'some text', status, 2)
    call check_int(1, status, 'status of setting text of trace 2')
    call knl_set_trace_attribute(set, 'i32s', [1, -2, 3], status, 2)
    call check_int(1, status, 'status of setting i32s of trace 2')
    call knl_set_trace_attribute(set, 'i64s', [big, -1_c_int64_t], status, 2)
    call check_int(1, status, 'status of setting i64s of trace 2')
    call knl_set_trace_attribute(set, 'f32s', [0.5, 1.5, 2.5, 3.5], status, 2)
    call check_int(1, status, 'status of setting f32s of trace 2')
    call knl_set_trace_attribute(set, 'f64s', [0.1_c_double, 0.2_c_double], status, 2)
    call check_int(1, status, 'status of setting f64s of trace 2')
  end subroutine write_attributes

  subroutine read_attributes(set)
    type(c_ptr), intent(in) :: set
    integer(c_int) :: status, i32, i32s(3)
    integer(c_int64_t) :: i64, i64s(4)
    real(c_float) :: f32, f32s(9)
    real(c_double) :: f64, f64s(1)
    character(len=12) :: text

    i32 = -7; i64 = -7; f32 = -7; f64 = -7; text = 'before'
    i32s = -7; i64s = -7; f32s = -7; f64s = -7
    call knl_get_trace_attribute(set, 'i32', i32, status)
    call check(status == 0 .and. i32 == 42, 'i32')
    call knl_get_trace_attribute(set, 'i64', i64, status)
    call check(status == 0 .and. i64 == big, 'i64')
    call knl_get_trace_attribute(set, 'f32', f32, status)
    call check_int(0, status, 'status of f32')
    call check_real(1.5_c_double, real(f32, c_double), 'f32')
    call knl_get_trace_attribute(set, 'f64', f64, status)
    call check_int(0, status, 'status of f64')
    call check_real(0.1_c_double, f64, 'f64')
    call knl_get_trace_attribute(set, 'text', text, status)
    call check_int(0, status, 'status of text')
    call check_text('some text', text, 'text')
    call knl_get_trace_attribute(set, 'i32s', i32s, status)
    call check(status == 0 .and. all(i32s == [1, -2, 3]), 'i32s')
    ! More room than there are elements, every other element, and less room.
    call knl_get_trace_attribute(set, 'i64s', i64s, status)
    call check(status == 0 .and. all(i64s == [big, -1_c_int64_t, -7_c_int64_t, -7_c_int64_t]), &
        'i64s')
    call knl_get_trace_attribute(set, 'f32s', f32s(1:7:2), status)
    call check(all(f32s == [0.5, -7.0, 1.5, -7.0, 2.5, -7.0, 3.5, -7.0, -7.0]), 'f32s')
    call knl_get_trace_attribute(set, 'f64s', f64s, status)
    call check_real(0.1_c_double, f64s(1), 'f64s')
    call knl_get_trace_attribute(set, 'absent', i32, status)
    call check(status == 1 .and. i32 == 42, 'an absent i32')
    call knl_get_trace_attribute(set, 'absent', i32s, status)
    call check(status == 1 .and. all(i32s == [1, -2, 3]), 'an absent array')

    i32 = -7; i64 = -7; f32 = -7; f64 = -7; text = 'before'
    i32s = -7; i64s = -7; f32s = -7; f64s = -7
    call knl_get_trace_attribute(set, 'i32', i32, status, 2)
    call check(status == 0 .and. i32 == 42, 'i32 of trace 2')
    call knl_get_trace_attribute(set, 'i64', i64, status, 2)
    call check(status == 0 .and. i64 == big, 'i64 of trace 2')
    call knl_get_trace_attribute(set, 'f32', f32, status, 2)
    call check_int(0, status, 'status of f32 of trace 2')
    call check_real(1.5_c_double, real(f32, c_double), 'f32 of trace 2')
    call knl_get_trace_attribute(set, 'f64', f64, status, 2)
    call check_int(0, status, 'status of f64 of trace 2')
    call check_real(0.1_c_double, f64, 'f64 of trace 2')
    call knl_get_trace_attribute(set, 'text', text, status, 2)
    call check_int(0, status, 'status of text of trace 2')
    call check_text('some text', text, 'text of trace 2')
    call knl_get_trace_attribute(set, 'i32s', i32s, status, 2)
    call check(status == 0 .and. all(i32s == [1, -2, 3]), 'i32s of trace 2')
    ! More room than there are elements, every other element, and less room.
    call knl_get_trace_attribute(set, 'i64s', i64s, status, 2)
    call check(status == 0 .and. all(i64s == [big, -1_c_int64_t, -7_c_int64_t, -7_c_int64_t]), &
        'i64s of trace 2')
    call knl_get_trace_attribute(set, 'f32s', f32s(1:7:2), status, 2)
    call check(all(f32s == [0.5, -7.0, 1.5, -7.0, 2.5, -7.0, 3.5, -7.0, -7.0]), 'f32s of trace 2')
    call knl_get_trace_attribute(set, 'f64s', f64s, status, 2)
    call check_real(0.1_c_double, f64s(1), 'f64s of trace 2')
    call knl_get_trace_attribute(set, 'absent', i32, status, 2)
    call check(status == 1 .and. i32 == 42, 'an absent i32 of trace 2')
    call knl_get_trace_attribute(set, 'absent', i32s, status, 2)
    call check(status == 1 .and. all(i32s == [1, -2, 3]), 'an absent array of trace 2')

    call knl_get_trace_attribute(set, 'i32', f64, status)
    call check_real(42.0_c_double, f64, 'i32 as f64')
    i32s = -7
    call knl_get_trace_attribute(set, 'i32', i32s, status)
    call check(status == 0 .and. all(i32s == -7), 'i32 as an array')
  end subroutine read_attributes

  subroutine use_lists(set)
    type(c_ptr), intent(in) :: set
    type(c_ptr) :: list, fresh
    integer(c_int) :: status, count, types(5), i32(5)
    integer(c_int64_t) :: i64(5)
    real(c_float) :: f32(10)
    real(c_double) :: f64(5)

    call knl_bld_attribute_list([character(len=8) :: 'i32', 'absent', 'i64', 'f32', 'f64'], list, &
        status)
    call check_int(0, status, 'status of making a list')
    call knl_get_attribute_list_size(list, count)
    call check_int(5, count, 'names of the list')
    call knl_get_attribute_list_presence(list, set, types, count)
    call check_int(4, count, 'attributes that the set has')
    call check(all(types == [2, 0, 3, 4, 5]), 'types of the attributes of a list')
    i32 = -7
    call knl_get_trace_attributes(list, set, i32, count)
    call check_int(4, count, 'integers read')
    call check(all(i32 == [42, -7, 0, 1, 0]), 'integers of a list')
    i64 = -7
    call knl_get_trace_attributes(list, set, i64(:3), count, 2)
    call check_int(2, count, '64-bit integers read')
    call check(i64(1) == 42 .and. i64(2) == -7 .and. i64(3) == big .and. i64(4) == -7, &
        '64-bit integers of a list')
    f32 = -7
    call knl_get_trace_attributes(list, set, f32(::2), count)
    call check_int(4, count, 'reals read')
    call check(all(f32([1, 2, 3, 7]) == [42.0, -7.0, -7.0, 1.5]), 'reals of a list')
    f64 = -7
    call knl_get_trace_attributes(list, set, f64, count, 1)
    call check_int(4, count, 'double precisions read')
    call check_real(0.1_c_double, f64(5), 'double precision of a list')
    call knl_get_trace_attributes(list, set, f64, count, 0)
    call check_int(0, count, 'values read of trace 0')

    ! A set of its own: traces are moved into the other one later, which replaces what is there.
    call knl_get_work_trace_buffer(fresh, 7, status)
    call knl_set_trace_attributes(list, fresh, [1], count, 3)
    call check_int(1, count, 'integers written')
    call knl_set_trace_attributes(list, fresh, [big], count, 4)
    call check_int(1, count, '64-bit integers written')
    call knl_set_trace_attributes(list, fresh, [2.5], count, 5)
    call check_int(1, count, 'reals written')
    call knl_set_trace_attributes(list, fresh, [3.5_c_double], count, 6)
    call check_int(1, count, 'double precisions written')
    do count = 3, 6
      call knl_get_trace_attribute(fresh, 'i32', i32(count - 2), status, count)
    end do
    call check(all(i32(1:4) == [1, 0, 2, 3]), 'what has been written from lists')
    call knl_free_attribute_list(list)
    call check(.not. c_associated(list), 'handle of a list that was freed')
  end subroutine use_lists

  subroutine find_buffers()
    integer(c_int) :: status
    type(c_ptr) :: buffer

    call knl_get_input_trace_buffer(buffer, 1, status)
    call check(status == 0 .and. c_associated(buffer), 'input 1')
    call knl_get_input_trace_buffer(buffer, 2, status)
    call check(status == 1 .and. .not. c_associated(buffer), 'input 2')
    call knl_get_output_trace_buffer(buffer, 1, status)
    call check(status == 0 .and. c_associated(buffer), 'output 1')
    call knl_get_output_trace_buffer(buffer, 2, status)
    call check(status == 1 .and. .not. c_associated(buffer), 'output 2')
    call knl_get_work_trace_buffer(buffer, 3, status)
    call check(status == 0 .and. c_associated(buffer), 'work set 3')
  end subroutine find_buffers

  subroutine build_buffers()
    integer(c_int) :: status, number
    type(c_ptr) :: input, output, work

    call knl_get_input_trace_buffer(input, 1, status)
    call knl_get_output_trace_buffer(output, 1, status)
    call knl_bld_output_trace_buffer(1, 3, 4000, input, status)
    call check_int(0, status, 'status of building output 1')
    call knl_bld_output_trace_buffer(2, 3, 4000, c_null_ptr, status)
    call check_int(1, status, 'status of building output 2')
    call knl_get_trace_length(output, number, status)
    call check(status == 0 .and. number == 3, 'length of output 1')
    call knl_get_trace_sample_interval(output, number, status)
    call check(status == 0 .and. number == 4000, 'interval of output 1')
    call knl_inform_total_traces_number(output, 4)

    call knl_bld_work_trace_buffer(1, 5, 2000, 0, status)
    call check_work_set(1, 5, 1)
    call knl_bld_work_trace_buffer(2, 6, 2000, 0, input, status)
    call check_work_set(2, 6, 0)
    call knl_get_work_trace_buffer(work, 2, status)
    call build_alike(work)
    call knl_bld_work_trace_buffer_f0(7, 7, 2000, 0, status)
    call check_work_set(7, 7, 1)
    call knl_bld_work_trace_buffer_f1(8, 8, 2000, 0, input, status)
    call check_work_set(8, 8, 0)
  end subroutine build_buffers

  !> A work set of the layout of another.
  subroutine build_alike(like)
    type(c_ptr), intent(in) :: like
    integer(c_int) :: status

    call knl_bld_work_trace_buffer_like(9, like, status)
    call check_int(0, status, 'status of building a work set like another')
    call check_work_set(9, 6, 0)
    call knl_bld_work_trace_buffer_like(9, like, status)
    call check_int(1, status, 'status of building it again')
  end subroutine build_alike

  subroutine check_work_set(number, length, no_template)
    integer(c_int), intent(in) :: number, length, no_template
    type(c_ptr) :: set
    integer(c_int) :: found, status

    call knl_get_work_trace_buffer(set, number, status)
    call knl_get_trace_length(set, found, status)
    call check_int(length, found, 'length of a work set')
    call knl_is_trace_attribute_exist(set, 'number', status)
    call check_int(no_template, status, 'whether a work set has no template')
  end subroutine check_work_set

  subroutine change_geometry(set)
    type(c_ptr), intent(in) :: set
    integer(c_int) :: status, number
    logical :: use

    call knl_set_trace_length(set, 4, status)
    call knl_get_trace_length(set, number, status)
    call check_int(4, number, 'a length that was set')
    call knl_set_trace_sample_interval(set, 1000, status)
    call knl_get_trace_sample_interval(set, number, status)
    call check_int(1000, number, 'an interval that was set')
    call knl_set_number_of_traces(set, 2, status)
    call knl_get_number_of_traces(set, number, status)
    call check_int(2, number, 'traces that were made')
    call knl_get_number_of_traces(c_null_ptr, number, status)
    call check(status == 1 .and. number == 2, 'traces of nothing')

    call knl_is_trace_buffer_use_scratch(set, use)
    call check(use, 'scratch is used at first')
    call knl_set_trace_buffer_use_scratch(set, .false.)
    call knl_is_trace_buffer_use_scratch(set, use)
    call check(.not. use, 'scratch can be done without')
  end subroutine change_geometry

  ! Two traces of four samples.
  subroutine use_samples(set)
    type(c_ptr), intent(in) :: set
    real(c_float), pointer :: samples(:)
    real(c_float), target :: others(4) = [6.0, 7.0, 8.0, 9.0]
    integer(c_int) :: status

    call knl_set_trace_samples(set, [1.0, 2.0, 3.0, 4.0], status)
    call check_int(1, status, 'status of setting samples')
    call knl_set_trace_samples(set, [10.0, 20.0, 30.0, 40.0, 50.0], status, 2)
    call check_int(1, status, 'status of setting samples of trace 2')
    call knl_set_trace_samples(set, [-1.0, -2.0, -3.0], status)
    call check_int(0, status, 'status of setting too few samples')

    call knl_get_trace_samples(set, samples, status)
    call check_int(0, status, 'status of samples')
    call check_int(4, size(samples, kind=c_int), 'size of samples')
    call check(lbound(samples, 1) == 1 .and. all(samples == [1.0, 2.0, 3.0, 4.0]), 'samples')
    call knl_get_trace_samples(set, samples, status, 2)
    call check_int(0, status, 'status of samples of trace 2')
    call check(all(samples == [10.0, 20.0, 30.0, 40.0]), 'samples of trace 2')
    samples(4) = -1 ! in the trace itself

    ! The traces keep the samples that a shorter length leaves out.
    call knl_set_trace_length(set, 2, status)
    call knl_set_trace_samples(set, [5.0, 6.0], status)
    call check_int(1, status, 'status of setting samples of a shorter length')
    call knl_set_trace_length(set, 4, status)
    call knl_get_trace_samples(set, samples, status)
    call check(all(samples == [5.0, 6.0, 3.0, 4.0]), 'samples beyond the shorter length')
    call knl_set_trace_samples(set, c_loc(others), status)
    call check_int(1, status, 'status of setting samples from an address')
    call check(all(samples == [6.0, 7.0, 8.0, 9.0]), 'samples from an address')
    call knl_set_trace_samples(set, c_loc(others), status, 2)
    call knl_set_trace_samples(set, [1.0, 2.0, 3.0, 4.0], status)
    call knl_get_trace_samples(set, samples, status, 2)
    call check(all(samples == [6.0, 7.0, 8.0, 9.0]), 'samples of trace 2 from an address')
    call knl_set_trace_samples(set, [10.0, 20.0, 30.0, -1.0], status, 2)

    call knl_get_trace_samples(c_null_ptr, samples, status)
    call check(status == 1 .and. .not. associated(samples), 'samples of nothing')
  end subroutine use_samples

  ! From the two traces of use_samples and of write_attributes to another set of their kind.
  subroutine copy_traces(set, other)
    type(c_ptr), intent(in) :: set, other
    real(c_float), pointer :: samples(:)
    integer(c_int) :: status, number

    call knl_copy_trace_to_trace(set, other, .true., .false., status)
    call check_int(1, status, 'status of copying a header')
    call knl_get_trace_attribute(other, 'i32', number, status)
    call check_int(42, number, 'i32 of a copy')
    call knl_get_trace_samples(other, samples, status)
    call check(all(samples == 0), 'samples that were not copied')
    call knl_copy_trace_to_trace(set, other, .false., .true., status)
    call check(all(samples == [1.0, 2.0, 3.0, 4.0]), 'samples that were copied')

    call knl_copy_trace_to_trace(set, other, .true., .true., status, 2, 3)
    call check_int(1, status, 'status of copying trace 2 to trace 3')
    call knl_get_trace_samples(other, samples, status, 3)
    call check(all(samples == [10.0, 20.0, 30.0, -1.0]), 'samples of trace 3')
    call knl_copy_trace_to_trace(set, other, .false., .true., status, trace_to=2)
    call knl_get_trace_samples(other, samples, status, 2)
    call check(all(samples == [1.0, 2.0, 3.0, 4.0]), 'samples of trace 2')

    call knl_move_trace_to_trace(other, set, 3, 3, status)
    call check_int(1, status, 'status of moving trace 3')
    call knl_get_trace_samples(set, samples, status, 3)
    call check(all(samples == [10.0, 20.0, 30.0, -1.0]), 'samples that were moved')
    call knl_move_trace_to_trace(other, set, 3, 3, status)
    call check_int(0, status, 'status of moving a trace that is gone')

    call knl_transfer_trace_to_trace(set, other, 3, 4, status)
    call check_int(1, status, 'status of transferring trace 3')
    call knl_get_trace_samples(other, samples, status, 4)
    call check(all(samples == [10.0, 20.0, 30.0, -1.0]), 'samples that were transferred')
    call knl_remove_trace(other, 3, status)
    call check_int(1, status, 'status of removing an empty place')
    call knl_remove_trace(other, 4, status)
    call check_int(0, status, 'status of removing a trace that does not exist')
    call knl_transfer_trace_to_trace(other, set, 3, 3, status)
    call check_int(1, status, 'status of transferring trace 3 back')

    call knl_clear_trace_set(set, status)
    call check(status == 1 .and. all(samples == 0), 'samples after clearing')
  end subroutine copy_traces

  ! The flag is read from the first trace and set on the last one.
  subroutine flag_traces(set)
    type(c_ptr), intent(in) :: set
    integer(c_int) :: status, flag

    call knl_set_data_channel_flag(set, 5)
    call knl_get_data_channel_flag(set, flag)
    call check_int(5, flag, 'flag of an empty set')
    call knl_set_number_of_traces(set, 2, status)
    call knl_set_data_channel_flag(set, knl_end_of_data)
    call knl_get_data_channel_flag(set, flag)
    call check_int(0, flag, 'flag of the first of two traces')
  end subroutine flag_traces

  subroutine flag_channel()
    logical :: flagged

    call knl_is_input_trace_buffer_flagged(1, 2, flagged)
    call check(.not. flagged, 'a flag that is not raised')
    call knl_set_input_trace_buffer_flag(1, 2)
    call knl_is_input_trace_buffer_flagged(1, 2, flagged)
    call check(flagged, 'a flag that is raised')
  end subroutine flag_channel

  ! Three of its four samples, and its number doubled; each trace twice.
  subroutine pass_trace_on()
    type(c_ptr) :: input, output
    integer(c_int) :: status, number, copy

    call knl_get_input_trace_buffer(input, 1, status)
    call knl_get_output_trace_buffer(output, 1, status)
    call knl_copy_trace_to_trace(input, output, .true., .true., status)
    call check_int(1, status, 'status of passing a trace on')
    call knl_get_trace_attribute(input, 'number', number, status)
    copy = 0
    call knl_get_trace_attribute(input, 'copy', copy, status)
    if (copy == 0) then
      ! The input comes once more; it is not the end of the data yet.
      call knl_set_trace_attribute(input, 'copy', 1, status)
      call knl_set_input_trace_buffer_flag(1, knl_keep_trace)
      call knl_set_data_channel_flag(output, 0)
    end if
    call knl_set_trace_attribute(output, 'number', 2 * number, status)
    call knl_set_trace_attribute(output, 'copy', copy, status)
  end subroutine pass_trace_on
end module modern_trace_checks

integer function preprocess()
  use, intrinsic :: iso_c_binding, only: c_int, c_ptr
  use checks, only: check_int
  use modern_trace_checks
  use vorn_knl
  implicit none
  type(c_ptr) :: set, other
  integer(c_int) :: status, traces

  call query_schema()
  call find_buffers()
  call build_buffers()
  call knl_get_work_trace_buffer(set, 4, status)
  call change_geometry(set)
  call write_attributes(set)
  call read_attributes(set)
  call use_lists(set)
  call use_samples(set)
  call knl_bld_work_trace_buffer(5, 4, 1000, 0, set, status)
  call knl_get_work_trace_buffer(other, 5, status)
  call copy_traces(set, other)
  call knl_get_work_trace_buffer(set, 6, status)
  call flag_traces(set)
  call flag_channel()
  call knl_remove_work_traces()
  call knl_get_number_of_traces(other, traces, status)
  call check_int(0, traces, 'traces of a work set after all were removed')
  preprocess = 0
end function preprocess

integer function process()
  use modern_trace_checks, only: pass_trace_on
  implicit none

  call pass_trace_on()
  process = 0
end function process

integer function postprocess()
  use checks, only: report_checks
  implicit none

  call report_checks()
  postprocess = 0
end function postprocess
