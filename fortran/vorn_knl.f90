! The module interface of the VORN kernel for modern Fortran.
!
!     use vorn_knl
!     real, pointer :: samples(:)
!     ...
!     call knl_get_module_parameter('WINDOW', window, found)
!     call knl_get_input_trace_buffer(input, 1, status)
!     call knl_get_trace_samples(input, samples, status)
!
! Every function of the Fortran form of the interface is here, under its name with the words set
! apart by underscores (`knl_get_trace_length` is `knl_gettracelength_`), with its arguments in
! their order. Where a family has one function per type of value, one generic name stands for them
! all. Subjects follow each other as in `knl.h`. What holds for all of them:
!
! - Names and other texts are ordinary character arguments. Blanks before and behind a name do not
!   count; 255 characters of it do.
! - `integer` is `integer(c_int)`, `real` is `real(c_float)`; 64-bit values are `integer(c_int64_t)`
!   and `real(c_double)`, which is `double precision`.
! - Trace sets, libraries and groups are handles, `type(c_ptr)`. They belong to the kernel.
! - Channels, work sets, traces and rows of groups are counted from 1. (C counts them from 0.)
! - `found` is a logical. `status` is the integer that the interface defines, and what it means
!   differs from family to family: for some 0 is success, for others 1. Each family says it.
! - What is not found is not written: the variable keeps the value that it had before the call, so
!   that a default is set by assigning it first.
! - Memory and arrays of the kernel arrive as ordinary Fortran pointers, with lower bound 1.
!
! Everything works only while one of the module's entry points runs.
!
! The first part of the file has an interface for each exported function, the second makes the
! generic names of them, the third holds bodies. The comments at what is public are the reference.
! Names that begin with `knl_raw_` are the Fortran form, those with `c_` the C form, where the
! Fortran form has no such function or cannot say how many elements an array has. All of them are
! private, so that code with implicit interfaces (`call knl_geti32moduleparameter(...)`) in the
! same scope calls what it has always called.
module vorn_knl
  use, intrinsic :: iso_c_binding, only: c_associated, c_char, c_double, c_f_pointer, c_float, &
      c_int, c_int64_t, c_loc, c_null_char, c_null_ptr, c_ptr
  implicit none
  private

  ! Types of messages, as the modules and the `vorn` command understand them.
  integer(c_int), parameter, public :: knl_message_detail = 0
  integer(c_int), parameter, public :: knl_message_information = 1
  integer(c_int), parameter, public :: knl_message_warning = 2
  integer(c_int), parameter, public :: knl_message_error = 3  ! the job goes on
  integer(c_int), parameter, public :: knl_message_fatal = 4  ! the module ends its data

  ! What a module says with knl_set_data_channel_flag: this is the last trace.
  integer(c_int), parameter, public :: knl_end_of_data = 3

  ! What a module says with knl_set_input_trace_buffer_flag: show me this trace again.
  integer(c_int), parameter, public :: knl_keep_trace = 1

  ! Module parameters and options
  public :: knl_get_module_parameter
  public :: knl_get_module_parameter_text, knl_get_module_parameter_texts
  public :: knl_get_module_parameter_library, knl_get_module_parameter_group
  public :: knl_set_module_processing_option, knl_get_module_processing_option

  ! Groups
  public :: knl_get_group_parameter_size
  public :: knl_get_group_parameter
  public :: knl_get_group_parameter_text, knl_get_group_parameter_texts
  public :: knl_get_group_parameter_library, knl_get_group_parameter_group
  public :: knl_set_group_parameter, knl_set_group_parameter_group

  ! Libraries
  public :: knl_get_library_type, knl_is_library_attribute_exist
  public :: knl_get_library_parameter
  public :: knl_get_library_parameter_text, knl_get_library_parameter_texts
  public :: knl_get_library_parameter_library, knl_get_library_parameter_group
  public :: knl_set_library_parameter, knl_set_library_parameter_group

  ! Trace attributes
  public :: knl_define_trace_attribute, knl_is_trace_attribute_exist
  public :: knl_get_trace_attribute, knl_set_trace_attribute

  ! Many trace attributes at once
  public :: knl_bld_attribute_list, knl_free_attribute_list
  public :: knl_get_attribute_list_size, knl_get_attribute_list_presence
  public :: knl_get_trace_attributes, knl_set_trace_attributes

  ! Schema
  public :: knl_get_trace_attribute_type, knl_get_trace_attribute_dimension
  public :: knl_get_trace_attribute_description

  ! Resources
  public :: knl_get_module_resource, knl_set_module_resource
  public :: knl_get_module_struct_resource, knl_set_module_struct_resource

  ! Memory and files
  public :: knl_allocate_resource, knl_zero_array, knl_free_resource
  public :: knl_file_open, knl_file_create, knl_file_close, knl_open_file

  ! Trace buffers of the module, and trace sets
  public :: knl_get_input_trace_buffer, knl_get_output_trace_buffer, knl_get_work_trace_buffer
  public :: knl_bld_output_trace_buffer
  public :: knl_bld_work_trace_buffer, knl_bld_work_trace_buffer_f0, knl_bld_work_trace_buffer_f1
  public :: knl_bld_work_trace_buffer_like
  public :: knl_set_input_trace_buffer_flag, knl_is_input_trace_buffer_flagged
  public :: knl_set_trace_buffer_use_scratch, knl_is_trace_buffer_use_scratch
  public :: knl_inform_total_traces_number
  public :: knl_get_trace_length, knl_get_trace_sample_interval, knl_get_number_of_traces
  public :: knl_set_trace_length, knl_set_trace_sample_interval, knl_set_number_of_traces
  public :: knl_get_data_channel_flag, knl_set_data_channel_flag
  public :: knl_clear_trace_set, knl_copy_trace_to_trace, knl_move_trace_to_trace
  public :: knl_transfer_trace_to_trace, knl_remove_trace, knl_remove_work_traces
  public :: knl_get_trace_samples, knl_set_trace_samples

  ! Messages and commands
  public :: knl_send_message, knl_add_message_argument, knl_exec_appli_cmd

  ! Pads
  public :: knl_create_pad, knl_plot, knl_number, knl_symbol, knl_factor, knl_newpen

  ! The job that runs
  public :: knl_is_cancelled

  ! Directories and date
  public :: knl_date, knl_get_scratch_dir, knl_get_project_dir, knl_set_project_dir

  ! Metadata
  public :: knl_set_metadata_value, knl_get_metadata_value

  ! The record with which the kernel describes an array: 72 bytes, its own layout. It never leaves
  ! this module; callers see pointers.
  !
  ! It is NOT what a compiler keeps for `real, pointer :: x(:)`. gfortran's record for that has 64
  ! bytes with other fields in another order; handing it to one of the functions marked with
  ! "descriptor" below makes a pointer to nowhere, and the kernel silently overwrites the eight
  ! bytes that follow it in memory.
  type, bind(C) :: array_descriptor
    type(c_ptr) :: data            ! the first element
    integer(c_int64_t) :: dsize    ! bytes of an element
    integer(c_int64_t) :: offset   ! always 0
    integer(c_int64_t) :: bordr    ! always 3
    integer(c_int64_t) :: rank     ! always 1
    integer(c_int64_t) :: rserv    ! never written by the kernel
    integer(c_int64_t) :: extent   ! number of elements
    integer(c_int64_t) :: distance ! bytes from one element to the next, as dsize
    integer(c_int64_t) :: lbound   ! always 1
  end type array_descriptor

  ! ------------------------------------------------------------------------------------------------
  ! First part: the exported functions that need a body of ours to be called from Fortran.
  !
  ! The arguments `lname`, `lvalue` and the like are the lengths of texts, which C passes by value
  ! behind all others. Deliberate: each function has an interface body, although many are alike.
  ! gfortran 12 takes procedures declared by a common abstract interface, and forgets from the
  ! second call on that they have arguments passed by value.
  ! ------------------------------------------------------------------------------------------------

  ! Module parameters and options
  interface
    subroutine knl_raw_geti32moduleparameter(name, value, istat, lname) &
        bind(C, name="knl_geti32moduleparameter_")
      import
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_geti64moduleparameter(name, value, istat, lname) &
        bind(C, name="knl_geti64moduleparameter_")
      import
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int64_t), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getf32moduleparameter(name, value, istat, lname) &
        bind(C, name="knl_getf32moduleparameter_")
      import
      character(kind=c_char), intent(in) :: name(*)
      real(c_float), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getf64moduleparameter(name, value, istat, lname) &
        bind(C, name="knl_getf64moduleparameter_")
      import
      character(kind=c_char), intent(in) :: name(*)
      real(c_double), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getstrmoduleparameter(name, value, istat, lname, lvalue) &
        bind(C, name="knl_getstrmoduleparameter_")
      import
      character(kind=c_char), intent(in) :: name(*)
      character(kind=c_char), intent(inout) :: value(*)
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname, lvalue
    end subroutine
    subroutine knl_raw_geti32arraymoduleparameter(name, address, count, istat, lname) &
        bind(C, name="knl_geti32arraymoduleparameter_")
      import
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(inout) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_geti64arraymoduleparameter(name, address, count, istat, lname) &
        bind(C, name="knl_geti64arraymoduleparameter_")
      import
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(inout) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getf32arraymoduleparameter(name, address, count, istat, lname) &
        bind(C, name="knl_getf32arraymoduleparameter_")
      import
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(inout) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getf64arraymoduleparameter(name, address, count, istat, lname) &
        bind(C, name="knl_getf64arraymoduleparameter_")
      import
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(inout) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    function c_getstrmoduleparametern(name, value, n) &
        result(length) bind(C, name="knl_getStrModuleParameterN")
      import
      character(kind=c_char), intent(in) :: name(*)
      character(kind=c_char), intent(inout) :: value(*)
      integer(c_int), value :: n
      integer(c_int) :: length
    end function
    function c_copyi32moduleparameter(name, values, n) &
        result(count) bind(C, name="knl_copyI32ModuleParameter")
      import
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(inout) :: values(*)
      integer(c_int), value :: n
      integer(c_int) :: count
    end function
    function c_copyi64moduleparameter(name, values, n) &
        result(count) bind(C, name="knl_copyI64ModuleParameter")
      import
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int64_t), intent(inout) :: values(*)
      integer(c_int), value :: n
      integer(c_int) :: count
    end function
    function c_copyf32moduleparameter(name, values, n) &
        result(count) bind(C, name="knl_copyF32ModuleParameter")
      import
      character(kind=c_char), intent(in) :: name(*)
      real(c_float), intent(inout) :: values(*)
      integer(c_int), value :: n
      integer(c_int) :: count
    end function
    function c_copyf64moduleparameter(name, values, n) &
        result(count) bind(C, name="knl_copyF64ModuleParameter")
      import
      character(kind=c_char), intent(in) :: name(*)
      real(c_double), intent(inout) :: values(*)
      integer(c_int), value :: n
      integer(c_int) :: count
    end function
    subroutine knl_raw_getlibmoduleparameter(name, value, istat, lname) &
        bind(C, name="knl_getlibmoduleparameter_")
      import
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getgroupmoduleparameter(name, value, istat, lname) &
        bind(C, name="knl_getgroupmoduleparameter_")
      import
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setmoduleprocessingoption(option, value, loption) &
        bind(C, name="knl_setmoduleprocessingoption_")
      import
      character(kind=c_char), intent(in) :: option(*)
      integer(c_int), intent(in) :: value
      integer(c_int), value :: loption
    end subroutine
    function c_getmoduleprocessingoption(option, value) result(found) &
        bind(C, name="knl_getModuleProcessingOption")
      import
      character(kind=c_char), intent(in) :: option(*)
      integer(c_int), intent(inout) :: value
      integer(c_int) :: found
    end function
  end interface

  ! Groups
  interface
    subroutine knl_raw_geti32groupparameter(group, name, row, value, istat, lname) &
        bind(C, name="knl_geti32groupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      integer(c_int), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_geti64groupparameter(group, name, row, value, istat, lname) &
        bind(C, name="knl_geti64groupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      integer(c_int64_t), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getf32groupparameter(group, name, row, value, istat, lname) &
        bind(C, name="knl_getf32groupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      real(c_float), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getf64groupparameter(group, name, row, value, istat, lname) &
        bind(C, name="knl_getf64groupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      real(c_double), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getstrgroupparameter(group, name, row, value, istat, lname, lvalue) &
        bind(C, name="knl_getstrgroupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      character(kind=c_char), intent(inout) :: value(*)
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname, lvalue
    end subroutine
    subroutine knl_raw_geti32arraygroupparameter(group, name, row, address, count, istat, lname) &
        bind(C, name="knl_geti32arraygroupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(inout) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_geti64arraygroupparameter(group, name, row, address, count, istat, lname) &
        bind(C, name="knl_geti64arraygroupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(inout) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getf32arraygroupparameter(group, name, row, address, count, istat, lname) &
        bind(C, name="knl_getf32arraygroupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(inout) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getf64arraygroupparameter(group, name, row, address, count, istat, lname) &
        bind(C, name="knl_getf64arraygroupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(inout) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    function c_getstrgroupparametern(group, name, row, value, n) &
        result(length) bind(C, name="knl_getStrGroupParameterN")
      import
      type(c_ptr), value :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), value :: row
      character(kind=c_char), intent(inout) :: value(*)
      integer(c_int), value :: n
      integer(c_int) :: length
    end function
    function c_copyi32groupparameter(group, name, row, values, n) &
        result(count) bind(C, name="knl_copyI32GroupParameter")
      import
      type(c_ptr), value :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), value :: row
      integer(c_int), intent(inout) :: values(*)
      integer(c_int), value :: n
      integer(c_int) :: count
    end function
    function c_copyi64groupparameter(group, name, row, values, n) &
        result(count) bind(C, name="knl_copyI64GroupParameter")
      import
      type(c_ptr), value :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), value :: row
      integer(c_int64_t), intent(inout) :: values(*)
      integer(c_int), value :: n
      integer(c_int) :: count
    end function
    function c_copyf32groupparameter(group, name, row, values, n) &
        result(count) bind(C, name="knl_copyF32GroupParameter")
      import
      type(c_ptr), value :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), value :: row
      real(c_float), intent(inout) :: values(*)
      integer(c_int), value :: n
      integer(c_int) :: count
    end function
    function c_copyf64groupparameter(group, name, row, values, n) &
        result(count) bind(C, name="knl_copyF64GroupParameter")
      import
      type(c_ptr), value :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), value :: row
      real(c_double), intent(inout) :: values(*)
      integer(c_int), value :: n
      integer(c_int) :: count
    end function
    subroutine knl_raw_getlibgroupparameter(group, name, row, value, istat, lname) &
        bind(C, name="knl_getlibgroupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      type(c_ptr), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getgrpgroupparameter(group, name, row, value, istat, lname) &
        bind(C, name="knl_getgrpgroupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      type(c_ptr), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_seti32groupparameter(group, name, row, value, istat, lname) &
        bind(C, name="knl_seti32groupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row, value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_seti64groupparameter(group, name, row, value, istat, lname) &
        bind(C, name="knl_seti64groupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      integer(c_int64_t), intent(in) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setf32groupparameter(group, name, row, value, istat, lname) &
        bind(C, name="knl_setf32groupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      real(c_float), intent(in) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setf64groupparameter(group, name, row, value, istat, lname) &
        bind(C, name="knl_setf64groupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      real(c_double), intent(in) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setstrgroupparameter(group, name, row, value, istat, lname, lvalue) &
        bind(C, name="knl_setstrgroupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      character(kind=c_char), intent(in) :: value(*)
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname, lvalue
    end subroutine
    subroutine knl_raw_seti32arraygroupparameter(group, name, row, address, count, istat, lname) &
        bind(C, name="knl_seti32arraygroupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_seti64arraygroupparameter(group, name, row, address, count, istat, lname) &
        bind(C, name="knl_seti64arraygroupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setf32arraygroupparameter(group, name, row, address, count, istat, lname) &
        bind(C, name="knl_setf32arraygroupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setf64arraygroupparameter(group, name, row, address, count, istat, lname) &
        bind(C, name="knl_setf64arraygroupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setgrpgroupparameter(group, name, row, value, istat, lname) &
        bind(C, name="knl_setgrpgroupparameter_")
      import
      type(c_ptr), intent(in) :: group
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: row
      type(c_ptr), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
  end interface

  ! Libraries
  interface
    subroutine knl_raw_islibraryattributeexist(handle, name, istat, lname) &
        bind(C, name="knl_islibraryattributeexist_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(inout) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_geti32libraryparameter(handle, name, value, istat, lname) &
        bind(C, name="knl_geti32libraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_geti64libraryparameter(handle, name, value, istat, lname) &
        bind(C, name="knl_geti64libraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int64_t), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getf32libraryparameter(handle, name, value, istat, lname) &
        bind(C, name="knl_getf32libraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      real(c_float), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getf64libraryparameter(handle, name, value, istat, lname) &
        bind(C, name="knl_getf64libraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      real(c_double), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getstrlibraryparameter(handle, name, value, istat, lname, lvalue) &
        bind(C, name="knl_getstrlibraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      character(kind=c_char), intent(inout) :: value(*)
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname, lvalue
    end subroutine
    subroutine knl_raw_geti32arraylibraryparameter(handle, name, address, count, istat, lname) &
        bind(C, name="knl_geti32arraylibraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(inout) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_geti64arraylibraryparameter(handle, name, address, count, istat, lname) &
        bind(C, name="knl_geti64arraylibraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(inout) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getf32arraylibraryparameter(handle, name, address, count, istat, lname) &
        bind(C, name="knl_getf32arraylibraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(inout) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getf64arraylibraryparameter(handle, name, address, count, istat, lname) &
        bind(C, name="knl_getf64arraylibraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(inout) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    function c_getstrlibraryparametern(library, name, value, n) &
        result(length) bind(C, name="knl_getStrLibraryParameterN")
      import
      type(c_ptr), value :: library
      character(kind=c_char), intent(in) :: name(*)
      character(kind=c_char), intent(inout) :: value(*)
      integer(c_int), value :: n
      integer(c_int) :: length
    end function
    function c_copyi32libraryparameter(library, name, values, n) &
        result(count) bind(C, name="knl_copyI32LibraryParameter")
      import
      type(c_ptr), value :: library
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(inout) :: values(*)
      integer(c_int), value :: n
      integer(c_int) :: count
    end function
    function c_copyi64libraryparameter(library, name, values, n) &
        result(count) bind(C, name="knl_copyI64LibraryParameter")
      import
      type(c_ptr), value :: library
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int64_t), intent(inout) :: values(*)
      integer(c_int), value :: n
      integer(c_int) :: count
    end function
    function c_copyf32libraryparameter(library, name, values, n) &
        result(count) bind(C, name="knl_copyF32LibraryParameter")
      import
      type(c_ptr), value :: library
      character(kind=c_char), intent(in) :: name(*)
      real(c_float), intent(inout) :: values(*)
      integer(c_int), value :: n
      integer(c_int) :: count
    end function
    function c_copyf64libraryparameter(library, name, values, n) &
        result(count) bind(C, name="knl_copyF64LibraryParameter")
      import
      type(c_ptr), value :: library
      character(kind=c_char), intent(in) :: name(*)
      real(c_double), intent(inout) :: values(*)
      integer(c_int), value :: n
      integer(c_int) :: count
    end function
    subroutine knl_raw_getgrouplibraryparameter(handle, name, value, istat, lname) &
        bind(C, name="knl_getgrouplibraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getliblibraryparameter(handle, name, value, istat, lname) &
        bind(C, name="knl_getliblibraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_seti32libraryparameter(handle, name, value, istat, lname) &
        bind(C, name="knl_seti32libraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_seti64libraryparameter(handle, name, value, istat, lname) &
        bind(C, name="knl_seti64libraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int64_t), intent(in) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setf32libraryparameter(handle, name, value, istat, lname) &
        bind(C, name="knl_setf32libraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      real(c_float), intent(in) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setf64libraryparameter(handle, name, value, istat, lname) &
        bind(C, name="knl_setf64libraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      real(c_double), intent(in) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setstringlibraryparameter(handle, name, value, istat, lname, lvalue) &
        bind(C, name="knl_setstringlibraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*), value(*)
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname, lvalue
    end subroutine
    subroutine knl_raw_seti32arraylibraryparameter(handle, name, address, count, istat, lname) &
        bind(C, name="knl_seti32arraylibraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_seti64arraylibraryparameter(handle, name, address, count, istat, lname) &
        bind(C, name="knl_seti64arraylibraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setf32arraylibraryparameter(handle, name, address, count, istat, lname) &
        bind(C, name="knl_setf32arraylibraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setf64arraylibraryparameter(handle, name, address, count, istat, lname) &
        bind(C, name="knl_setf64arraylibraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setgrplibraryparameter(handle, name, value, istat, lname) &
        bind(C, name="knl_setgrplibraryparameter_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
  end interface

  ! Trace attributes
  interface
    subroutine knl_raw_definetraceattribute(handle, name, istat, lname) &
        bind(C, name="knl_definetraceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(inout) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_istraceattributeexist(handle, name, istat, lname) &
        bind(C, name="knl_istraceattributeexist_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(inout) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_geti32traceattribute(handle, name, value, istat, lname) &
        bind(C, name="knl_geti32traceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_geti64traceattribute(handle, name, value, istat, lname) &
        bind(C, name="knl_geti64traceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int64_t), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getf32traceattribute(handle, name, value, istat, lname) &
        bind(C, name="knl_getf32traceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      real(c_float), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getf64traceattribute(handle, name, value, istat, lname) &
        bind(C, name="knl_getf64traceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      real(c_double), intent(inout) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    function c_mgetstrtraceattributen(set, name, trace, value, n) &
        result(length) bind(C, name="knl_mgetStrTraceAttributeN")
      import
      type(c_ptr), value :: set
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), value :: trace
      character(kind=c_char), intent(inout) :: value(*)
      integer(c_int), value :: n
      integer(c_int) :: length
    end function
    subroutine knl_raw_getstringtraceattribute(handle, name, value, istat, lname, lvalue) &
        bind(C, name="knl_getstringtraceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      character(kind=c_char), intent(inout) :: value(*)
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname, lvalue
    end subroutine
    subroutine knl_raw_geti32arraytraceattribute(handle, name, address, count, istat, lname) &
        bind(C, name="knl_geti32arraytraceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_geti64arraytraceattribute(handle, name, address, count, istat, lname) &
        bind(C, name="knl_geti64arraytraceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getf32arraytraceattribute(handle, name, address, count, istat, lname) &
        bind(C, name="knl_getf32arraytraceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getf64arraytraceattribute(handle, name, address, count, istat, lname) &
        bind(C, name="knl_getf64arraytraceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_seti32traceattribute(handle, name, value, istat, lname) &
        bind(C, name="knl_seti32traceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_seti64traceattribute(handle, name, value, istat, lname) &
        bind(C, name="knl_seti64traceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int64_t), intent(in) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setf32traceattribute(handle, name, value, istat, lname) &
        bind(C, name="knl_setf32traceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      real(c_float), intent(in) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setf64traceattribute(handle, name, value, istat, lname) &
        bind(C, name="knl_setf64traceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      real(c_double), intent(in) :: value
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setstringtraceattribute(handle, name, value, istat, lname) &
        bind(C, name="knl_setstringtraceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*), value(*)
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_seti32arraytraceattribute(handle, name, address, count, istat, lname) &
        bind(C, name="knl_seti32arraytraceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_seti64arraytraceattribute(handle, name, address, count, istat, lname) &
        bind(C, name="knl_seti64arraytraceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setf32arraytraceattribute(handle, name, address, count, istat, lname) &
        bind(C, name="knl_setf32arraytraceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setf64arraytraceattribute(handle, name, address, count, istat, lname) &
        bind(C, name="knl_setf64arraytraceattribute_")
      import
      type(c_ptr), intent(in) :: handle
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_mgeti32traceattribute(set, name, value, trace, istat, lname) &
        bind(C, name="knl_mgeti32traceattribute_")
      import
      type(c_ptr), intent(in) :: set
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(inout) :: value
      integer(c_int), intent(in) :: trace
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_mgeti64traceattribute(set, name, value, trace, istat, lname) &
        bind(C, name="knl_mgeti64traceattribute_")
      import
      type(c_ptr), intent(in) :: set
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int64_t), intent(inout) :: value
      integer(c_int), intent(in) :: trace
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_mgetf32traceattribute(set, name, value, trace, istat, lname) &
        bind(C, name="knl_mgetf32traceattribute_")
      import
      type(c_ptr), intent(in) :: set
      character(kind=c_char), intent(in) :: name(*)
      real(c_float), intent(inout) :: value
      integer(c_int), intent(in) :: trace
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_mgetf64traceattribute(set, name, value, trace, istat, lname) &
        bind(C, name="knl_mgetf64traceattribute_")
      import
      type(c_ptr), intent(in) :: set
      character(kind=c_char), intent(in) :: name(*)
      real(c_double), intent(inout) :: value
      integer(c_int), intent(in) :: trace
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_mgetstringtraceattribute(set, name, value, trace, istat, lname, lvalue) &
        bind(C, name="knl_mgetstringtraceattribute_")
      import
      type(c_ptr), intent(in) :: set
      character(kind=c_char), intent(in) :: name(*)
      character(kind=c_char), intent(inout) :: value(*)
      integer(c_int), intent(in) :: trace
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname, lvalue
    end subroutine
    subroutine knl_raw_mgeti32arraytraceattribute(set, name, address, count, trace, istat, lname) &
        bind(C, name="knl_mgeti32arraytraceattribute_")
      import
      type(c_ptr), intent(in) :: set
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count, trace
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_mgeti64arraytraceattribute(set, name, address, count, trace, istat, lname) &
        bind(C, name="knl_mgeti64arraytraceattribute_")
      import
      type(c_ptr), intent(in) :: set
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count, trace
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_mgetf32arraytraceattribute(set, name, address, count, trace, istat, lname) &
        bind(C, name="knl_mgetf32arraytraceattribute_")
      import
      type(c_ptr), intent(in) :: set
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count, trace
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_mgetf64arraytraceattribute(set, name, address, count, trace, istat, lname) &
        bind(C, name="knl_mgetf64arraytraceattribute_")
      import
      type(c_ptr), intent(in) :: set
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count, trace
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_mseti32traceattribute(set, name, value, trace, istat, lname) &
        bind(C, name="knl_mseti32traceattribute_")
      import
      type(c_ptr), intent(in) :: set
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(in) :: value, trace
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_mseti64traceattribute(set, name, value, trace, istat, lname) &
        bind(C, name="knl_mseti64traceattribute_")
      import
      type(c_ptr), intent(in) :: set
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int64_t), intent(in) :: value
      integer(c_int), intent(in) :: trace
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_msetf32traceattribute(set, name, value, trace, istat, lname) &
        bind(C, name="knl_msetf32traceattribute_")
      import
      type(c_ptr), intent(in) :: set
      character(kind=c_char), intent(in) :: name(*)
      real(c_float), intent(in) :: value
      integer(c_int), intent(in) :: trace
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_msetf64traceattribute(set, name, value, trace, istat, lname) &
        bind(C, name="knl_msetf64traceattribute_")
      import
      type(c_ptr), intent(in) :: set
      character(kind=c_char), intent(in) :: name(*)
      real(c_double), intent(in) :: value
      integer(c_int), intent(in) :: trace
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_msetstringtraceattribute(set, name, value, trace, istat, lname) &
        bind(C, name="knl_msetstringtraceattribute_")
      import
      type(c_ptr), intent(in) :: set
      character(kind=c_char), intent(in) :: name(*), value(*)
      integer(c_int), intent(in) :: trace
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_mseti32arraytraceattribute(set, name, address, count, trace, istat, lname) &
        bind(C, name="knl_mseti32arraytraceattribute_")
      import
      type(c_ptr), intent(in) :: set
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count, trace
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_mseti64arraytraceattribute(set, name, address, count, trace, istat, lname) &
        bind(C, name="knl_mseti64arraytraceattribute_")
      import
      type(c_ptr), intent(in) :: set
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count, trace
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_msetf32arraytraceattribute(set, name, address, count, trace, istat, lname) &
        bind(C, name="knl_msetf32arraytraceattribute_")
      import
      type(c_ptr), intent(in) :: set
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count, trace
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_msetf64arraytraceattribute(set, name, address, count, trace, istat, lname) &
        bind(C, name="knl_msetf64arraytraceattribute_")
      import
      type(c_ptr), intent(in) :: set
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), intent(in) :: address
      integer(c_int), intent(in) :: count, trace
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
  end interface

  ! Many trace attributes at once
  interface
    subroutine knl_raw_bldattributelist(names, count, list, istat, lnames) &
        bind(C, name="knl_bldattributelist_")
      import
      character(kind=c_char), intent(in) :: names(*)
      integer(c_int), intent(in) :: count
      type(c_ptr), intent(out) :: list
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lnames
    end subroutine
    subroutine knl_raw_freeattributelist(list) bind(C, name="knl_freeattributelist_")
      import
      type(c_ptr), intent(inout) :: list
    end subroutine
    subroutine knl_raw_getattributelistsize(list, count) &
        bind(C, name="knl_getattributelistsize_")
      import
      type(c_ptr), intent(in) :: list
      integer(c_int), intent(out) :: count
    end subroutine
    subroutine knl_raw_getattributelistpresence(list, set, types, room, count) &
        bind(C, name="knl_getattributelistpresence_")
      import
      type(c_ptr), intent(in) :: list, set
      integer(c_int), intent(inout) :: types(*)
      integer(c_int), intent(in) :: room
      integer(c_int), intent(out) :: count
    end subroutine
    subroutine knl_raw_geti32traceattributes(list, set, trace, values, room, count) &
        bind(C, name="knl_geti32traceattributes_")
      import
      type(c_ptr), intent(in) :: list, set
      integer(c_int), intent(in) :: trace
      integer(c_int), intent(inout) :: values(*)
      integer(c_int), intent(in) :: room
      integer(c_int), intent(out) :: count
    end subroutine
    subroutine knl_raw_geti64traceattributes(list, set, trace, values, room, count) &
        bind(C, name="knl_geti64traceattributes_")
      import
      type(c_ptr), intent(in) :: list, set
      integer(c_int), intent(in) :: trace
      integer(c_int64_t), intent(inout) :: values(*)
      integer(c_int), intent(in) :: room
      integer(c_int), intent(out) :: count
    end subroutine
    subroutine knl_raw_getf32traceattributes(list, set, trace, values, room, count) &
        bind(C, name="knl_getf32traceattributes_")
      import
      type(c_ptr), intent(in) :: list, set
      integer(c_int), intent(in) :: trace
      real(c_float), intent(inout) :: values(*)
      integer(c_int), intent(in) :: room
      integer(c_int), intent(out) :: count
    end subroutine
    subroutine knl_raw_getf64traceattributes(list, set, trace, values, room, count) &
        bind(C, name="knl_getf64traceattributes_")
      import
      type(c_ptr), intent(in) :: list, set
      integer(c_int), intent(in) :: trace
      real(c_double), intent(inout) :: values(*)
      integer(c_int), intent(in) :: room
      integer(c_int), intent(out) :: count
    end subroutine
    subroutine knl_raw_seti32traceattributes(list, set, trace, values, room, count) &
        bind(C, name="knl_seti32traceattributes_")
      import
      type(c_ptr), intent(in) :: list, set
      integer(c_int), intent(in) :: trace
      integer(c_int), intent(in) :: values(*)
      integer(c_int), intent(in) :: room
      integer(c_int), intent(out) :: count
    end subroutine
    subroutine knl_raw_seti64traceattributes(list, set, trace, values, room, count) &
        bind(C, name="knl_seti64traceattributes_")
      import
      type(c_ptr), intent(in) :: list, set
      integer(c_int), intent(in) :: trace
      integer(c_int64_t), intent(in) :: values(*)
      integer(c_int), intent(in) :: room
      integer(c_int), intent(out) :: count
    end subroutine
    subroutine knl_raw_setf32traceattributes(list, set, trace, values, room, count) &
        bind(C, name="knl_setf32traceattributes_")
      import
      type(c_ptr), intent(in) :: list, set
      integer(c_int), intent(in) :: trace
      real(c_float), intent(in) :: values(*)
      integer(c_int), intent(in) :: room
      integer(c_int), intent(out) :: count
    end subroutine
    subroutine knl_raw_setf64traceattributes(list, set, trace, values, room, count) &
        bind(C, name="knl_setf64traceattributes_")
      import
      type(c_ptr), intent(in) :: list, set
      integer(c_int), intent(in) :: trace
      real(c_double), intent(in) :: values(*)
      integer(c_int), intent(in) :: room
      integer(c_int), intent(out) :: count
    end subroutine
  end interface

  ! Schema
  interface
    subroutine knl_raw_gettraceattributetype(name, value, lname) &
        bind(C, name="knl_gettraceattributetype_")
      import
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(out) :: value
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_gettraceattributedimension(name, value, lname) &
        bind(C, name="knl_gettraceattributedimension_")
      import
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), intent(out) :: value
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_gettraceattributedescription(name, text, lname, ltext) &
        bind(C, name="knl_gettraceattributedescription_")
      import
      character(kind=c_char), intent(in) :: name(*)
      character(kind=c_char), intent(inout) :: text(*)
      integer(c_int), value :: lname, ltext
    end subroutine
  end interface

  ! Resources: all but the last three take the descriptor above, and only that. A pointer array of
  ! gfortran in its place would be filled wrongly, and the 8 bytes behind it overwritten.
  interface
    subroutine knl_raw_getmodulei32resource(name, array, istat, lname) &
        bind(C, name="knl_getmodulei32resource_")
      import
      character(kind=c_char), intent(in) :: name(*)
      type(array_descriptor), intent(inout) :: array
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getmodulei64resource(name, array, istat, lname) &
        bind(C, name="knl_getmodulei64resource_")
      import
      character(kind=c_char), intent(in) :: name(*)
      type(array_descriptor), intent(inout) :: array
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getmodulef32resource(name, array, istat, lname) &
        bind(C, name="knl_getmodulef32resource_")
      import
      character(kind=c_char), intent(in) :: name(*)
      type(array_descriptor), intent(inout) :: array
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getmodulef64resource(name, array, istat, lname) &
        bind(C, name="knl_getmodulef64resource_")
      import
      character(kind=c_char), intent(in) :: name(*)
      type(array_descriptor), intent(inout) :: array
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getmodulestrresource(name, array, width, istat, lname) &
        bind(C, name="knl_getmodulestrresource_")
      import
      character(kind=c_char), intent(in) :: name(*)
      type(array_descriptor), intent(inout) :: array
      integer(c_int), intent(in) :: width
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setmoduleresource(name, address, size, istat, lname) &
        bind(C, name="knl_setmoduleresource_")
      import
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), value :: address
      integer(c_int), intent(in) :: size
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_setmodulestructresource(name, address, size, istat, lname) &
        bind(C, name="knl_setmodulestructresource_")
      import
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), value :: address
      integer(c_int), intent(in) :: size
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
    subroutine knl_raw_getmodulestructresource(name, address, istat, lname) &
        bind(C, name="knl_getmodulestructresource_")
      import
      character(kind=c_char), intent(in) :: name(*)
      type(c_ptr), value :: address
      integer(c_int), intent(out) :: istat
      integer(c_int), value :: lname
    end subroutine
  end interface

  ! Memory: those that allocate and those that zero take the descriptor above, and only that. A
  ! pointer array of gfortran in its place would be filled wrongly, and the 8 bytes behind it
  ! overwritten.
  interface
    subroutine knl_raw_allocatei32resource(array, count) bind(C, name="knl_allocatei32resource_")
      import
      type(array_descriptor), intent(inout) :: array
      integer(c_int), intent(in) :: count
    end subroutine
    subroutine knl_raw_allocatei64resource(array, count) bind(C, name="knl_allocatei64resource_")
      import
      type(array_descriptor), intent(inout) :: array
      integer(c_int), intent(in) :: count
    end subroutine
    subroutine knl_raw_allocatef32resource(array, count) bind(C, name="knl_allocatef32resource_")
      import
      type(array_descriptor), intent(inout) :: array
      integer(c_int), intent(in) :: count
    end subroutine
    subroutine knl_raw_allocatef64resource(array, count) bind(C, name="knl_allocatef64resource_")
      import
      type(array_descriptor), intent(inout) :: array
      integer(c_int), intent(in) :: count
    end subroutine
    subroutine knl_raw_allocatestrresource(array, width, count) &
        bind(C, name="knl_allocatestrresource_")
      import
      type(array_descriptor), intent(inout) :: array
      integer(c_int), intent(in) :: width, count
    end subroutine
    subroutine knl_raw_zeroi32array(array) bind(C, name="knl_zeroi32array_")
      import
      type(array_descriptor), intent(inout) :: array
    end subroutine
    subroutine knl_raw_zeroi64array(array) bind(C, name="knl_zeroi64array_")
      import
      type(array_descriptor), intent(inout) :: array
    end subroutine
    subroutine knl_raw_zerof32array(array) bind(C, name="knl_zerof32array_")
      import
      type(array_descriptor), intent(inout) :: array
    end subroutine
    subroutine knl_raw_zerof64array(array) bind(C, name="knl_zerof64array_")
      import
      type(array_descriptor), intent(inout) :: array
    end subroutine
    subroutine knl_raw_zerostrarray(array, width) bind(C, name="knl_zerostrarray_")
      import
      type(array_descriptor), intent(inout) :: array
      integer(c_int), intent(in) :: width
    end subroutine
    subroutine knl_raw_freeresource(address) bind(C, name="knl_freeresource_")
      import
      type(c_ptr), intent(in) :: address
    end subroutine
  end interface

  ! Files; knl_OpenFile has capitals and no underscore behind it
  interface
    subroutine knl_raw_fileopen(file, unit, lfile) bind(C, name="knl_fileopen_")
      import
      character(kind=c_char), intent(in) :: file(*)
      integer(c_int), intent(out) :: unit
      integer(c_int), value :: lfile
    end subroutine
    subroutine knl_raw_filecreate(file, unit, lfile) bind(C, name="knl_filecreate_")
      import
      character(kind=c_char), intent(in) :: file(*)
      integer(c_int), intent(out) :: unit
      integer(c_int), value :: lfile
    end subroutine
    function knl_raw_openfile(file, flags, mode, unused, lfile) &
        result(unit) bind(C, name="knl_OpenFile")
      import
      character(kind=c_char), intent(in) :: file(*)
      integer(c_int), intent(in) :: flags, mode, unused
      integer(c_int), value :: lfile
      integer(c_int) :: unit
    end function
  end interface

  ! Trace buffers and trace sets; knl_istracebufferusescratch has no underscore behind it. Those
  ! that get samples take the descriptor above, and only that. A pointer array of gfortran in its
  ! place would be filled wrongly, and the 8 bytes behind it overwritten.
  interface
    subroutine knl_raw_bldworktracebuffer(work_set, length, interval, traces, template, status) &
        bind(C, name="knl_bldworktracebuffer_")
      import
      integer(c_int), intent(in) :: work_set, length, interval, traces
      type(c_ptr), intent(in) :: template
      integer(c_int), intent(out) :: status
    end subroutine
    subroutine knl_raw_isinputtracebufferflagged(channel, flag, answer) &
        bind(C, name="knl_isinputtracebufferflagged_")
      import
      integer(c_int), intent(in) :: channel, flag
      integer(c_int), intent(out) :: answer
    end subroutine
    subroutine knl_raw_settracebufferusescratch(set, use) &
        bind(C, name="knl_settracebufferusescratch_")
      import
      type(c_ptr), intent(in) :: set
      integer(c_int), intent(in) :: use
    end subroutine
    subroutine knl_raw_istracebufferusescratch(set, use) &
        bind(C, name="knl_istracebufferusescratch")
      import
      type(c_ptr), intent(in) :: set
      integer(c_int), intent(out) :: use
    end subroutine
    subroutine knl_raw_scopytracetotrace(from, to, header, samples, status) &
        bind(C, name="knl_scopytracetotrace_")
      import
      type(c_ptr), intent(in) :: from, to
      integer(c_int), intent(in) :: header, samples
      integer(c_int), intent(out) :: status
    end subroutine
    subroutine knl_raw_mcopytracetotrace(from, to, header, samples, trace_from, trace_to, status) &
        bind(C, name="knl_mcopytracetotrace_")
      import
      type(c_ptr), intent(in) :: from, to
      integer(c_int), intent(in) :: header, samples, trace_from, trace_to
      integer(c_int), intent(out) :: status
    end subroutine
    function c_movetracetotrace(from, to, trace_from, trace_to) &
        result(status) bind(C, name="knl_moveTraceToTrace")
      import
      type(c_ptr), value :: from, to
      integer(c_int), value :: trace_from, trace_to
      integer(c_int) :: status
    end function
    function c_transfertracetotrace(from, to, trace_from, trace_to) &
        result(status) bind(C, name="knl_transferTraceToTrace")
      import
      type(c_ptr), value :: from, to
      integer(c_int), value :: trace_from, trace_to
      integer(c_int) :: status
    end function
    function c_bldworktracebufferlike(work_set, model) result(status) &
        bind(C, name="knl_bldWorkTraceBufferLike")
      import
      integer(c_int), value :: work_set
      type(c_ptr), value :: model
      integer(c_int) :: status
    end function
    function c_removetrace(set, trace) result(status) bind(C, name="knl_removeTrace")
      import
      type(c_ptr), value :: set
      integer(c_int), value :: trace
      integer(c_int) :: status
    end function
    function c_removeworktraces() result(places) bind(C, name="knl_removeWorkTraces")
      import
      integer(c_int) :: places
    end function
    subroutine knl_raw_sgettracesamples(set, array, status) bind(C, name="knl_sgettracesamples_")
      import
      type(c_ptr), intent(in) :: set
      type(array_descriptor), intent(inout) :: array
      integer(c_int), intent(out) :: status
    end subroutine
    subroutine knl_raw_mgettracesamples(set, array, trace, status) &
        bind(C, name="knl_mgettracesamples_")
      import
      type(c_ptr), intent(in) :: set
      type(array_descriptor), intent(inout) :: array
      integer(c_int), intent(in) :: trace
      integer(c_int), intent(out) :: status
    end subroutine
    subroutine knl_raw_ssettracesamples(set, address, status) bind(C, name="knl_ssettracesamples_")
      import
      type(c_ptr), intent(in) :: set, address
      integer(c_int), intent(out) :: status
    end subroutine
    subroutine knl_raw_msettracesamples(set, address, trace, status) &
        bind(C, name="knl_msettracesamples_")
      import
      type(c_ptr), intent(in) :: set, address
      integer(c_int), intent(in) :: trace
      integer(c_int), intent(out) :: status
    end subroutine
  end interface

  ! Messages and commands
  interface
    subroutine knl_raw_sendmessage(number, text, ltext) bind(C, name="knl_sendmessage_")
      import
      integer(c_int), intent(in) :: number
      character(kind=c_char), intent(in) :: text(*)
      integer(c_int), value :: ltext
    end subroutine
    subroutine knl_raw_addi32messageargument(value) bind(C, name="knl_addi32messageargument_")
      import
      integer(c_int), intent(in) :: value
    end subroutine
    subroutine knl_raw_addi64messageargument(value) bind(C, name="knl_addi64messageargument_")
      import
      integer(c_int64_t), intent(in) :: value
    end subroutine
    subroutine knl_raw_addf32messageargument(value) bind(C, name="knl_addf32messageargument_")
      import
      real(c_float), intent(in) :: value
    end subroutine
    subroutine knl_raw_addf64messageargument(value) bind(C, name="knl_addf64messageargument_")
      import
      real(c_double), intent(in) :: value
    end subroutine
    subroutine knl_raw_addstrmessageargument(text, ltext) bind(C, name="knl_addstrmessageargument_")
      import
      character(kind=c_char), intent(in) :: text(*)
      integer(c_int), value :: ltext
    end subroutine
    subroutine knl_raw_execapplicmd(text, ltext) bind(C, name="knl_execapplicmd_")
      import
      character(kind=c_char), intent(in) :: text(*)
      integer(c_int), value :: ltext
    end subroutine
  end interface

  ! Pads
  interface
    subroutine knl_raw_createpad(pad, type, align, title, ltitle) bind(C, name="knl_createpad_")
      import
      integer(c_int), intent(out) :: pad
      integer(c_int), intent(in) :: type, align
      character(kind=c_char), intent(in) :: title(*)
      integer(c_int), value :: ltitle
    end subroutine
    subroutine knl_raw_symbol(pad, x, y, height, text, code, angle, characters, ltext) &
        bind(C, name="knl_symbol_")
      import
      integer(c_int), intent(in) :: pad, code, characters
      real(c_float), intent(in) :: x, y, height, angle
      character(kind=c_char), intent(in) :: text(*)
      integer(c_int), value :: ltext
    end subroutine
  end interface

  ! The job that runs
  interface
    subroutine knl_raw_iscancelled(status) bind(C, name="knl_iscancelled_")
      import
      integer(c_int), intent(out) :: status
    end subroutine
  end interface

  ! Directories and date
  interface
    subroutine knl_raw_date(text, ltext) bind(C, name="knl_date_")
      import
      character(kind=c_char), intent(inout) :: text(*)
      integer(c_int), value :: ltext
    end subroutine
    subroutine knl_raw_getscratchdir(text, ltext) bind(C, name="knl_getscratchdir_")
      import
      character(kind=c_char), intent(inout) :: text(*)
      integer(c_int), value :: ltext
    end subroutine
    function c_getprojectdir() result(text) bind(C, name="knl_getProjectDir")
      import
      type(c_ptr) :: text
    end function
    subroutine c_setprojectdir(text) bind(C, name="knl_setProjectDir")
      import
      character(kind=c_char), intent(in) :: text(*)
    end subroutine
  end interface

  ! Metadata
  interface
    subroutine knl_raw_setmetadatavalue(scope, name, value, lname, lvalue) &
        bind(C, name="knl_setmetadatavalue_")
      import
      integer(c_int), intent(in) :: scope
      character(kind=c_char), intent(in) :: name(*), value(*)
      integer(c_int), value :: lname, lvalue
    end subroutine
    subroutine knl_raw_setmetadatavaluen(scope, name, value, n, lname, lvalue) &
        bind(C, name="knl_setmetadatavaluen_")
      import
      integer(c_int), intent(in) :: scope, n
      character(kind=c_char), intent(in) :: name(*), value(*)
      integer(c_int), value :: lname, lvalue
    end subroutine
    function c_getmetadatavalue(scope, name, value, n) &
        result(length) bind(C, name="knl_getMetaDataValue")
      import
      integer(c_int), value :: scope, n
      character(kind=c_char), intent(in) :: name(*)
      character(kind=c_char), intent(inout) :: value(*)
      integer(c_int) :: length
    end function
  end interface

  ! ------------------------------------------------------------------------------------------------
  ! Second part: generic names, and functions that need no body of ours because they take no text.
  ! ------------------------------------------------------------------------------------------------

  ! ---- Module parameters and options ----

  !> Reads what the job gave the running module for the parameter `name`.
  !>
  !>     call knl_get_module_parameter(name, value, found)
  !>
  !> `value` is an integer, a 64-bit integer, a real, a double precision, a text, or an allocatable
  !> array of one of the four kinds of numbers, which gets the size of what is stored. Another type
  !> than the stored one is converted: text is parsed, numbers and the elements of arrays become
  !> numbers of the type asked for, numbers become text; what cannot be converted arrives as 0. A
  !> value that is not an array arrives as an array of one element. A text is cut or padded to the
  !> length of `value` and ends at its first newline; knl_get_module_parameter_text gives all of it,
  !> knl_get_module_parameter_texts its lines.
  !>
  !> `found`: whether there is such a parameter.
  interface knl_get_module_parameter
    module procedure get_i32_module_parameter, get_i64_module_parameter
    module procedure get_f32_module_parameter, get_f64_module_parameter
    module procedure get_text_module_parameter
    module procedure get_i32_array_module_parameter, get_i64_array_module_parameter
    module procedure get_f32_array_module_parameter, get_f64_array_module_parameter
  end interface knl_get_module_parameter

  ! ---- Groups ----

  !> How many rows a group has. `status` is always 1; a null group has 0 rows.
  interface
    subroutine knl_get_group_parameter_size(group, rows, status) &
        bind(C, name="knl_getgroupparametersize_")
      import
      type(c_ptr), intent(in) :: group
      integer(c_int), intent(inout) :: rows
      integer(c_int), intent(out) :: status
    end subroutine
  end interface

  !> Reads the parameter `name` of row `row` of a group; the first row is 1.
  !>
  !>     call knl_get_group_parameter(group, name, row, value, found)
  !>
  !> Types and conversions of `value` are those of knl_get_module_parameter. `found`: whether the
  !> group has that row and the row that name; a null group has nothing.
  interface knl_get_group_parameter
    module procedure get_i32_group_parameter, get_i64_group_parameter
    module procedure get_f32_group_parameter, get_f64_group_parameter
    module procedure get_text_group_parameter
    module procedure get_i32_array_group_parameter, get_i64_array_group_parameter
    module procedure get_f32_array_group_parameter, get_f64_array_group_parameter
  end interface knl_get_group_parameter

  !> Stores a copy of `value` in row `row` of a group; the first row is 1, and missing rows are
  !> made.
  !>
  !>     call knl_set_group_parameter(group, name, row, value, status)
  !>
  !> `status`: 1 stored, 0 refused.
  interface knl_set_group_parameter
    module procedure set_i32_group_parameter, set_i64_group_parameter
    module procedure set_f32_group_parameter, set_f64_group_parameter
    module procedure set_text_group_parameter
    module procedure set_i32_array_group_parameter, set_i64_array_group_parameter
    module procedure set_f32_array_group_parameter, set_f64_array_group_parameter
  end interface knl_set_group_parameter

  ! ---- Libraries ----

  !> The type of a library: 0 CN, 1 GD, 2 GR, 3 MU, 4 VI, 5 ED, 6 GE, 7 GX, 8 ST, 9 XY, 10 UM,
  !> 11 FD, 12 HZ. `status`: 0, or 1 for any other type, which leaves `type_code` alone.
  interface
    subroutine knl_get_library_type(library, type_code, status) bind(C, name="knl_getlibrarytype_")
      import
      type(c_ptr), intent(in) :: library
      integer(c_int), intent(inout) :: type_code
      integer(c_int), intent(out) :: status
    end subroutine
  end interface

  !> Reads the parameter `name` of a library.
  !>
  !>     call knl_get_library_parameter(library, name, value, found)
  !>
  !> Types and conversions of `value` are those of knl_get_module_parameter.
  interface knl_get_library_parameter
    module procedure get_i32_library_parameter, get_i64_library_parameter
    module procedure get_f32_library_parameter, get_f64_library_parameter
    module procedure get_text_library_parameter
    module procedure get_i32_array_library_parameter, get_i64_array_library_parameter
    module procedure get_f32_array_library_parameter, get_f64_array_library_parameter
  end interface knl_get_library_parameter

  !> Stores a copy of `value` as the parameter `name` of a library.
  !>
  !>     call knl_set_library_parameter(library, name, value, status)
  !>
  !> `status`: 1 stored, 0 refused.
  interface knl_set_library_parameter
    module procedure set_i32_library_parameter, set_i64_library_parameter
    module procedure set_f32_library_parameter, set_f64_library_parameter
    module procedure set_text_library_parameter
    module procedure set_i32_array_library_parameter, set_i64_array_library_parameter
    module procedure set_f32_array_library_parameter, set_f64_array_library_parameter
  end interface knl_set_library_parameter

  ! ---- Trace attributes ----

  !> Reads the attribute `name` of a trace: of trace `trace`, counted from 1, or of the first one
  !> when `trace` is not given. A trace that does not exist yet is made.
  !>
  !>     call knl_get_trace_attribute(set, name, value, status)
  !>     call knl_get_trace_attribute(set, name, value, status, trace)
  !>
  !> `value` is an integer, a 64-bit integer, a real, a double precision or a text, converted as
  !> parameters are; or an array of one of the four kinds of numbers. Of an array as many elements
  !> are read as it has and as the attribute has, whichever is less; the others are left alone, and
  !> all of them when the attribute is not such an array.
  !>
  !> `status`: 0 when the set has the attribute, 1 when it does not. (0 is success here, unlike
  !> with parameters.)
  interface knl_get_trace_attribute
    module procedure get_i32_trace_attribute, get_i64_trace_attribute
    module procedure get_f32_trace_attribute, get_f64_trace_attribute
    module procedure get_text_trace_attribute
    module procedure get_i32_array_trace_attribute, get_i64_array_trace_attribute
    module procedure get_f32_array_trace_attribute, get_f64_array_trace_attribute
  end interface knl_get_trace_attribute

  !> Writes the attribute `name` of a trace: of trace `trace`, counted from 1, or of the first one
  !> when `trace` is not given. An attribute that the set does not have is defined; a trace that
  !> does not exist yet is made.
  !>
  !>     call knl_set_trace_attribute(set, name, value, status)
  !>     call knl_set_trace_attribute(set, name, value, status, trace)
  !>
  !> `value` is converted to the attribute's type, except that an array must have the kind of the
  !> attribute and at least as many elements.
  !>
  !> `status`: 1 stored, 0 refused. (1 is success here, unlike reading.)
  interface knl_set_trace_attribute
    module procedure set_i32_trace_attribute, set_i64_trace_attribute
    module procedure set_f32_trace_attribute, set_f64_trace_attribute
    module procedure set_text_trace_attribute
    module procedure set_i32_array_trace_attribute, set_i64_array_trace_attribute
    module procedure set_f32_array_trace_attribute, set_f64_array_trace_attribute
  end interface knl_set_trace_attribute

  ! ---- Many trace attributes at once ----

  !> Reads, or writes, the attributes of a list in one trace, in the order of the list.
  !>
  !>     call knl_get_trace_attributes(list, set, values, count [, trace])
  !>     call knl_set_trace_attributes(list, set, values, count [, trace])
  !>
  !> `values` is an array of integers, 64-bit integers, reals or double precisions, converted as
  !> knl_get_trace_attribute and knl_set_trace_attribute do; names of the list beyond its size are
  !> left out. `trace` is the first one unless given. `count`: how many values were read or written.
  !> Reading leaves the values alone that the set does not have; writing defines what is missing.
  interface knl_get_trace_attributes
    module procedure get_i32_trace_attributes, get_i64_trace_attributes
    module procedure get_f32_trace_attributes, get_f64_trace_attributes
  end interface knl_get_trace_attributes

  interface knl_set_trace_attributes
    module procedure set_i32_trace_attributes, set_i64_trace_attributes
    module procedure set_f32_trace_attributes, set_f64_trace_attributes
  end interface knl_set_trace_attributes

  ! ---- Resources ----

  !> Points `array` at the module resource `name`: at the memory itself, not at a copy. This is how
  !> a module finds again, in its next call, what it allocated in an earlier one.
  !>
  !>     call knl_get_module_resource(name, array, found)
  !>
  !> `array` is a pointer to an array of integers, 64-bit integers, reals, double precisions, or
  !> texts of fixed length; it must be declared as what was stored. Its size is the size stored with
  !> the resource. `found`: whether there is such a resource; when not, `array` is left alone. A
  !> resource that is not an address gives a null pointer.
  !>
  !> The functions behind this name take a descriptor: not gfortran's own record of a pointer, which
  !> is 8 bytes too short for them. Do not call those directly with a pointer.
  interface knl_get_module_resource
    module procedure get_i32_resource, get_i64_resource, get_f32_resource, get_f64_resource
    module procedure get_text_resource
  end interface knl_get_module_resource

  !> Stores the address and the size of `array` as the module resource `name`. The memory is not
  !> copied and must live as long as it is used: take it from knl_allocate_resource.
  !>
  !>     call knl_set_module_resource(name, array, status)
  !>
  !> `array` is a pointer to what knl_get_module_resource reads back. `status`: 1 stored, 0 when no
  !> module is running.
  interface knl_set_module_resource
    module procedure set_i32_resource, set_i64_resource, set_f32_resource, set_f64_resource
    module procedure set_text_resource
  end interface knl_set_module_resource

  ! ---- Memory ----

  !> Makes `array` point to `count` new elements, all zero, charged to the running module. They live
  !> until knl_free_resource.
  !>
  !>     call knl_allocate_resource(array, count)
  !>
  !> `array` is a pointer to an array of integers, 64-bit integers, reals, double precisions, or
  !> texts of fixed length (`character(len=8), pointer :: names(:)`; they hold NUL characters at
  !> first, not blanks). It is null when the memory cannot be had; the kernel then has sent a
  !> message. A count of 0 gives an empty array that holds no memory.
  !>
  !> The functions behind this name take a descriptor: not gfortran's own record of a pointer, which
  !> is 8 bytes too short for them. Do not call those directly with a pointer.
  interface knl_allocate_resource
    module procedure allocate_i32, allocate_i64, allocate_f32, allocate_f64, allocate_text
  end interface knl_allocate_resource

  !> Makes `array` an empty array: associated, of size 0. What it pointed to before is not released.
  !>
  !>     call knl_zero_array(array)
  !>
  !> The functions behind this name take a descriptor: not gfortran's own record of a pointer, which
  !> is 8 bytes too short for them. Do not call those directly with a pointer.
  interface knl_zero_array
    module procedure zero_i32, zero_i64, zero_f32, zero_f64, zero_text
  end interface knl_zero_array

  !> Copies `samples` to a trace: to trace `trace`, counted from 1, or to the first one when
  !> `trace` is not given.
  !>
  !>     call knl_set_trace_samples(set, samples, status)
  !>     call knl_set_trace_samples(set, samples, status, trace)
  !>
  !> `samples` is an array: `status` is 1 when it was copied, 0 and nothing copied when it has fewer
  !> elements than the traces of the set have samples. Or it is the address (`type(c_ptr)`) of as
  !> many samples as the trace itself has, which can be more than the set says: `status` is 1, or 0
  !> when the trace does not exist.
  interface knl_set_trace_samples
    module procedure set_samples, set_samples_from
  end interface knl_set_trace_samples

  !> Releases what knl_allocate_resource gave, and makes `array` a null pointer. An empty array and
  !> a null pointer hold nothing to release.
  !>
  !>     call knl_free_resource(array)
  interface knl_free_resource
    module procedure free_i32, free_i64, free_f32, free_f64, free_text
  end interface knl_free_resource

  ! ---- Files ----

  !> Closes the file descriptor `unit` (which is none of Fortran's units).
  interface
    subroutine knl_file_close(unit) bind(C, name="knl_fileclose_")
      import
      integer(c_int), intent(in) :: unit
    end subroutine
  end interface

  ! ---- Trace buffers ----
  !
  ! Channels and work sets are counted from 1. `status`: 0 success, 1 failure.

  !> The handle of input channel `channel`; null and `status` 1 when the module has no such channel.
  interface
    subroutine knl_get_input_trace_buffer(set, channel, status) &
        bind(C, name="knl_getinputtracebuffer_")
      import
      type(c_ptr), intent(out) :: set
      integer(c_int), intent(in) :: channel
      integer(c_int), intent(out) :: status
    end subroutine
  end interface

  !> The handle of output channel `channel`; null and `status` 1 when the module has no such
  !> channel.
  interface
    subroutine knl_get_output_trace_buffer(set, channel, status) &
        bind(C, name="knl_getoutputtracebuffer_")
      import
      type(c_ptr), intent(out) :: set
      integer(c_int), intent(in) :: channel
      integer(c_int), intent(out) :: status
    end subroutine
  end interface

  !> The handle of work set `work_set`, which is made when asked for, together with those before it.
  interface
    subroutine knl_get_work_trace_buffer(set, work_set, status) &
        bind(C, name="knl_getworktracebuffer_")
      import
      type(c_ptr), intent(out) :: set
      integer(c_int), intent(in) :: work_set
      integer(c_int), intent(out) :: status
    end subroutine
  end interface

  !> Gives output channel `channel` its trace length (samples), its sample interval (microseconds),
  !> and every attribute of the set `template`; c_null_ptr for no template.
  interface
    subroutine knl_bld_output_trace_buffer(channel, length, interval, template, status) &
        bind(C, name="knl_bldoutputtracebuffer_")
      import
      integer(c_int), intent(in) :: channel, length, interval
      type(c_ptr), intent(in) :: template
      integer(c_int), intent(out) :: status
    end subroutine
  end interface

  !> The same for a work set, without a template. `traces` is accepted and has no effect.
  interface
    subroutine knl_bld_work_trace_buffer_f0(work_set, length, interval, traces, status) &
        bind(C, name="knl_bldworktracebufferf0_")
      import
      integer(c_int), intent(in) :: work_set, length, interval, traces
      integer(c_int), intent(out) :: status
    end subroutine
  end interface

  !> The same for a work set, with a template.
  interface
    subroutine knl_bld_work_trace_buffer_f1(work_set, length, interval, traces, template, status) &
        bind(C, name="knl_bldworktracebufferf1_")
      import
      integer(c_int), intent(in) :: work_set, length, interval, traces
      type(c_ptr), intent(in) :: template
      integer(c_int), intent(out) :: status
    end subroutine
  end interface

  !> Both, with the template before `status` or left out:
  !>
  !>     call knl_bld_work_trace_buffer(work_set, length, interval, traces, status)
  !>     call knl_bld_work_trace_buffer(work_set, length, interval, traces, template, status)
  interface knl_bld_work_trace_buffer
    procedure knl_bld_work_trace_buffer_f0, knl_raw_bldworktracebuffer
  end interface knl_bld_work_trace_buffer

  !> Raises flags of input channel `channel`, as knl_keep_trace: the current trace comes again with
  !> the next call.
  interface
    subroutine knl_set_input_trace_buffer_flag(channel, flag) &
        bind(C, name="knl_setinputtracebufferflag_")
      import
      integer(c_int), intent(in) :: channel, flag
    end subroutine
  end interface

  !> Announces how many traces will go through `set` in all, for the host's progress
  !> display.
  interface
    subroutine knl_inform_total_traces_number(set, traces) &
        bind(C, name="knl_informtotaltracesnumber_")
      import
      type(c_ptr), intent(in) :: set
      integer(c_int), intent(in) :: traces
    end subroutine
  end interface

  ! ---- Trace sets ----

  !> Samples per trace; the sample interval in microseconds; the number of traces. `status`: 0, or 1
  !> for a null handle, which leaves `value` alone.
  interface
    subroutine knl_get_trace_length(set, value, status) bind(C, name="knl_gettracelength_")
      import
      type(c_ptr), intent(in) :: set
      integer(c_int), intent(inout) :: value
      integer(c_int), intent(out) :: status
    end subroutine
    subroutine knl_get_trace_sample_interval(set, value, status) &
        bind(C, name="knl_gettracesampleinterval_")
      import
      type(c_ptr), intent(in) :: set
      integer(c_int), intent(inout) :: value
      integer(c_int), intent(out) :: status
    end subroutine
    subroutine knl_get_number_of_traces(set, value, status) bind(C, name="knl_getnumberoftraces_")
      import
      type(c_ptr), intent(in) :: set
      integer(c_int), intent(inout) :: value
      integer(c_int), intent(out) :: status
    end subroutine
  end interface

  !> The same, changed; traces that exist keep their length, and none is removed. `status` is always
  !> 0.
  interface
    subroutine knl_set_trace_length(set, value, status) bind(C, name="knl_settracelength_")
      import
      type(c_ptr), intent(in) :: set
      integer(c_int), intent(in) :: value
      integer(c_int), intent(out) :: status
    end subroutine
    subroutine knl_set_trace_sample_interval(set, value, status) &
        bind(C, name="knl_settracesampleinterval_")
      import
      type(c_ptr), intent(in) :: set
      integer(c_int), intent(in) :: value
      integer(c_int), intent(out) :: status
    end subroutine
    subroutine knl_set_number_of_traces(set, value, status) bind(C, name="knl_setnumberoftraces_")
      import
      type(c_ptr), intent(in) :: set
      integer(c_int), intent(in) :: value
      integer(c_int), intent(out) :: status
    end subroutine
  end interface

  !> The flag of the first trace of the set; of an empty set its own.
  interface
    subroutine knl_get_data_channel_flag(set, flag) bind(C, name="knl_getdatachannelflag_")
      import
      type(c_ptr), intent(in) :: set
      integer(c_int), intent(out) :: flag
    end subroutine
  end interface

  !> Flags the last trace of the set, or an empty set itself. knl_end_of_data on an output channel
  !> says that no more traces will come.
  interface
    subroutine knl_set_data_channel_flag(set, flag) bind(C, name="knl_setdatachannelflag_")
      import
      type(c_ptr), intent(in) :: set
      integer(c_int), intent(in) :: flag
    end subroutine
  end interface

  !> Zeroes samples and headers of all traces of the set; the traces stay. `status`: 1 done.
  interface
    subroutine knl_clear_trace_set(set, status) bind(C, name="knl_cleartraceset_")
      import
      type(c_ptr), intent(in) :: set
      integer(c_int), intent(out) :: status
    end subroutine
  end interface

  ! ---- Messages ----

  !> Hands the host one more argument of the message before or after it: an integer, a 64-bit
  !> integer, a real, a double precision, or a text of less than 4096 characters without its
  !> trailing blanks (a longer one stops the process).
  !>
  !>     call knl_add_message_argument(value)
  interface knl_add_message_argument
    procedure knl_raw_addi32messageargument, knl_raw_addi64messageargument
    procedure knl_raw_addf32messageargument, knl_raw_addf64messageargument
    module procedure add_text_message_argument
  end interface knl_add_message_argument

  ! ---- Pads ----
  !
  ! What positions, pens and special symbols mean is the host's.

  !> Moves or draws to a position.
  interface
    subroutine knl_plot(pad, x, y, pen) bind(C, name="knl_plot_")
      import
      integer(c_int), intent(in) :: pad, pen
      real(c_float), intent(in) :: x, y
    end subroutine
  end interface

  !> Draws a number with so many decimals.
  interface
    subroutine knl_number(pad, x, y, height, number, angle, decimals) bind(C, name="knl_number_")
      import
      integer(c_int), intent(in) :: pad, decimals
      real(c_float), intent(in) :: x, y, height, number, angle
    end subroutine
  end interface

  !> Sets the scale factor of what follows.
  interface
    subroutine knl_factor(pad, factor) bind(C, name="knl_factor_")
      import
      integer(c_int), intent(in) :: pad
      real(c_float), intent(in) :: factor
    end subroutine
  end interface

  !> Takes another pen.
  interface
    subroutine knl_newpen(pad, pen) bind(C, name="knl_newpen_")
      import
      integer(c_int), intent(in) :: pad, pen
    end subroutine
  end interface

contains

  ! ------------------------------------------------------------------------------------------------
  ! Third part: bodies.
  ! ------------------------------------------------------------------------------------------------

  ! ---- Module parameters and options ----

  subroutine get_i32_module_parameter(name, value, found)
    character(len=*), intent(in) :: name
    integer(c_int), intent(inout) :: value
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_geti32moduleparameter(name, value, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine get_i32_module_parameter

  subroutine get_i64_module_parameter(name, value, found)
    character(len=*), intent(in) :: name
    integer(c_int64_t), intent(inout) :: value
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_geti64moduleparameter(name, value, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine get_i64_module_parameter

  subroutine get_f32_module_parameter(name, value, found)
    character(len=*), intent(in) :: name
    real(c_float), intent(inout) :: value
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_getf32moduleparameter(name, value, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine get_f32_module_parameter

  subroutine get_f64_module_parameter(name, value, found)
    character(len=*), intent(in) :: name
    real(c_double), intent(inout) :: value
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_getf64moduleparameter(name, value, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine get_f64_module_parameter

  subroutine get_text_module_parameter(name, value, found)
    character(len=*), intent(in) :: name
    character(len=*), intent(inout) :: value
    logical, intent(out) :: found
    character(len=:, kind=c_char), allocatable :: whole

    call whole_text_of_module_parameter(name, whole)
    found = allocated(whole)
    if (found) value = first_line(whole)
  end subroutine get_text_module_parameter

  ! The value as text, with all its lines; not allocated where there is none.
  subroutine whole_text_of_module_parameter(name, whole)
    character(len=*), intent(in) :: name
    character(len=:, kind=c_char), allocatable, intent(out) :: whole
    character(len=1, kind=c_char) :: nothing(1)
    character(len=1, kind=c_char), allocatable :: text(:)
    integer(c_int) :: length

    length = c_getstrmoduleparametern(c_text(name), nothing, 0)
    if (length < 0) return
    allocate (text(length + 1))
    length = c_getstrmoduleparametern(c_text(name), text, length + 1)
    whole = joined(text(:length))
  end subroutine whole_text_of_module_parameter

  !> Reads the parameter `name` as text of any length, with all its lines. `found`: whether there is
  !> such a parameter; `value` stays as it was where there is none.
  subroutine knl_get_module_parameter_text(name, value, found)
    character(len=*), intent(in) :: name
    character(len=:), allocatable, intent(inout) :: value
    logical, intent(out) :: found
    character(len=:, kind=c_char), allocatable :: whole

    call whole_text_of_module_parameter(name, whole)
    found = allocated(whole)
    if (found) value = whole
  end subroutine knl_get_module_parameter_text

  !> Reads a list of texts (`text_list` in a manifest) into an array: each element is as long as the
  !> longest text, blanks follow a shorter one. An empty list has no element. `found`: whether there
  !> is such a parameter; `value` stays as it was where there is none.
  subroutine knl_get_module_parameter_texts(name, value, found)
    character(len=*), intent(in) :: name
    character(len=:), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    character(len=:, kind=c_char), allocatable :: whole

    call whole_text_of_module_parameter(name, whole)
    found = allocated(whole)
    if (found) call split_lines(whole, value)
  end subroutine knl_get_module_parameter_texts

  subroutine get_i32_array_module_parameter(name, value, found)
    character(len=*), intent(in) :: name
    integer(c_int), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    integer(c_int) :: nothing(1)
    integer(c_int) :: count

    count = c_copyi32moduleparameter(c_text(name), nothing, 0)
    found = count >= 0
    if (.not. found) return
    if (allocated(value)) deallocate (value)
    allocate (value(count))
    if (count > 0) count = c_copyi32moduleparameter(c_text(name), value, count)
  end subroutine get_i32_array_module_parameter

  subroutine get_i64_array_module_parameter(name, value, found)
    character(len=*), intent(in) :: name
    integer(c_int64_t), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    integer(c_int64_t) :: nothing(1)
    integer(c_int) :: count

    count = c_copyi64moduleparameter(c_text(name), nothing, 0)
    found = count >= 0
    if (.not. found) return
    if (allocated(value)) deallocate (value)
    allocate (value(count))
    if (count > 0) count = c_copyi64moduleparameter(c_text(name), value, count)
  end subroutine get_i64_array_module_parameter

  subroutine get_f32_array_module_parameter(name, value, found)
    character(len=*), intent(in) :: name
    real(c_float), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    real(c_float) :: nothing(1)
    integer(c_int) :: count

    count = c_copyf32moduleparameter(c_text(name), nothing, 0)
    found = count >= 0
    if (.not. found) return
    if (allocated(value)) deallocate (value)
    allocate (value(count))
    if (count > 0) count = c_copyf32moduleparameter(c_text(name), value, count)
  end subroutine get_f32_array_module_parameter

  subroutine get_f64_array_module_parameter(name, value, found)
    character(len=*), intent(in) :: name
    real(c_double), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    real(c_double) :: nothing(1)
    integer(c_int) :: count

    count = c_copyf64moduleparameter(c_text(name), nothing, 0)
    found = count >= 0
    if (.not. found) return
    if (allocated(value)) deallocate (value)
    allocate (value(count))
    if (count > 0) count = c_copyf64moduleparameter(c_text(name), value, count)
  end subroutine get_f64_array_module_parameter

  !> The library or group that is the value of a module parameter; a null handle when the value is
  !> none.
  subroutine knl_get_module_parameter_library(name, value, found)
    character(len=*), intent(in) :: name
    type(c_ptr), intent(inout) :: value
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_getlibmoduleparameter(name, value, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine knl_get_module_parameter_library

  subroutine knl_get_module_parameter_group(name, value, found)
    character(len=*), intent(in) :: name
    type(c_ptr), intent(inout) :: value
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_getgroupmoduleparameter(name, value, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine knl_get_module_parameter_group

  !> Sets a processing option of the running module: `RespectEOD` with 1 asks for calls without
  !> input after the end of the data, one after the other until the module flags its own output with
  !> knl_end_of_data. (The interface's own function reads the option's name up to a NUL,
  !> which is put there.)
  subroutine knl_set_module_processing_option(option, value)
    character(len=*), intent(in) :: option
    integer(c_int), intent(in) :: value

    call knl_raw_setmoduleprocessingoption(terminated(option), value, len_trim(option, c_int))
  end subroutine knl_set_module_processing_option

  !> Reads a processing option; `value` is unchanged where it is not set. (Of the C form; the Fortran
  !> form has no such function.)
  subroutine knl_get_module_processing_option(option, value, found)
    character(len=*), intent(in) :: option
    integer(c_int), intent(inout) :: value
    logical, intent(out) :: found

    found = c_getmoduleprocessingoption(trim(option) // c_null_char, value) == 1
  end subroutine knl_get_module_processing_option

  ! ---- Groups ----

  subroutine get_i32_group_parameter(group, name, row, value, found)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    integer(c_int), intent(inout) :: value
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_geti32groupparameter(group, name, row, value, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine get_i32_group_parameter

  subroutine get_i64_group_parameter(group, name, row, value, found)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    integer(c_int64_t), intent(inout) :: value
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_geti64groupparameter(group, name, row, value, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine get_i64_group_parameter

  subroutine get_f32_group_parameter(group, name, row, value, found)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    real(c_float), intent(inout) :: value
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_getf32groupparameter(group, name, row, value, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine get_f32_group_parameter

  subroutine get_f64_group_parameter(group, name, row, value, found)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    real(c_double), intent(inout) :: value
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_getf64groupparameter(group, name, row, value, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine get_f64_group_parameter

  subroutine get_text_group_parameter(group, name, row, value, found)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    character(len=*), intent(inout) :: value
    logical, intent(out) :: found
    character(len=:, kind=c_char), allocatable :: whole

    call whole_text_of_group_parameter(group, name, row, whole)
    found = allocated(whole)
    if (found) value = first_line(whole)
  end subroutine get_text_group_parameter

  ! The value as text, with all its lines; not allocated where there is none.
  subroutine whole_text_of_group_parameter(group, name, row, whole)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    character(len=:, kind=c_char), allocatable, intent(out) :: whole
    character(len=1, kind=c_char) :: nothing(1)
    character(len=1, kind=c_char), allocatable :: text(:)
    integer(c_int) :: length

    length = c_getstrgroupparametern(group, c_text(name), row - 1, nothing, 0)
    if (length < 0) return
    allocate (text(length + 1))
    length = c_getstrgroupparametern(group, c_text(name), row - 1, text, length + 1)
    whole = joined(text(:length))
  end subroutine whole_text_of_group_parameter

  !> Reads the parameter `name` as text of any length, with all its lines. `found`: whether there is
  !> such a parameter; `value` stays as it was where there is none.
  subroutine knl_get_group_parameter_text(group, name, row, value, found)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    character(len=:), allocatable, intent(inout) :: value
    logical, intent(out) :: found
    character(len=:, kind=c_char), allocatable :: whole

    call whole_text_of_group_parameter(group, name, row, whole)
    found = allocated(whole)
    if (found) value = whole
  end subroutine knl_get_group_parameter_text

  !> Reads a list of texts (`text_list` in a manifest) into an array: each element is as long as the
  !> longest text, blanks follow a shorter one. An empty list has no element. `found`: whether there
  !> is such a parameter; `value` stays as it was where there is none.
  subroutine knl_get_group_parameter_texts(group, name, row, value, found)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    character(len=:), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    character(len=:, kind=c_char), allocatable :: whole

    call whole_text_of_group_parameter(group, name, row, whole)
    found = allocated(whole)
    if (found) call split_lines(whole, value)
  end subroutine knl_get_group_parameter_texts

  subroutine get_i32_array_group_parameter(group, name, row, value, found)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    integer(c_int), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    integer(c_int) :: nothing(1)
    integer(c_int) :: count

    count = c_copyi32groupparameter(group, c_text(name), row - 1, nothing, 0)
    found = count >= 0
    if (.not. found) return
    if (allocated(value)) deallocate (value)
    allocate (value(count))
    if (count > 0) count = c_copyi32groupparameter(group, c_text(name), row - 1, value, count)
  end subroutine get_i32_array_group_parameter

  subroutine get_i64_array_group_parameter(group, name, row, value, found)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    integer(c_int64_t), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    integer(c_int64_t) :: nothing(1)
    integer(c_int) :: count

    count = c_copyi64groupparameter(group, c_text(name), row - 1, nothing, 0)
    found = count >= 0
    if (.not. found) return
    if (allocated(value)) deallocate (value)
    allocate (value(count))
    if (count > 0) count = c_copyi64groupparameter(group, c_text(name), row - 1, value, count)
  end subroutine get_i64_array_group_parameter

  subroutine get_f32_array_group_parameter(group, name, row, value, found)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    real(c_float), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    real(c_float) :: nothing(1)
    integer(c_int) :: count

    count = c_copyf32groupparameter(group, c_text(name), row - 1, nothing, 0)
    found = count >= 0
    if (.not. found) return
    if (allocated(value)) deallocate (value)
    allocate (value(count))
    if (count > 0) count = c_copyf32groupparameter(group, c_text(name), row - 1, value, count)
  end subroutine get_f32_array_group_parameter

  subroutine get_f64_array_group_parameter(group, name, row, value, found)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    real(c_double), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    real(c_double) :: nothing(1)
    integer(c_int) :: count

    count = c_copyf64groupparameter(group, c_text(name), row - 1, nothing, 0)
    found = count >= 0
    if (.not. found) return
    if (allocated(value)) deallocate (value)
    allocate (value(count))
    if (count > 0) count = c_copyf64groupparameter(group, c_text(name), row - 1, value, count)
  end subroutine get_f64_array_group_parameter

  !> The library or group that is the value of a group's parameter; rows are counted from 1.
  subroutine knl_get_group_parameter_library(group, name, row, value, found)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    type(c_ptr), intent(inout) :: value
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_getlibgroupparameter(group, name, row, value, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine knl_get_group_parameter_library

  subroutine knl_get_group_parameter_group(group, name, row, value, found)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    type(c_ptr), intent(inout) :: value
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_getgrpgroupparameter(group, name, row, value, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine knl_get_group_parameter_group

  subroutine set_i32_group_parameter(group, name, row, value, status)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    integer(c_int), intent(in) :: value
    integer(c_int), intent(out) :: status

    call knl_raw_seti32groupparameter(group, name, row, value, status, len_trim(name, c_int))
  end subroutine set_i32_group_parameter

  subroutine set_i64_group_parameter(group, name, row, value, status)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    integer(c_int64_t), intent(in) :: value
    integer(c_int), intent(out) :: status

    call knl_raw_seti64groupparameter(group, name, row, value, status, len_trim(name, c_int))
  end subroutine set_i64_group_parameter

  subroutine set_f32_group_parameter(group, name, row, value, status)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    real(c_float), intent(in) :: value
    integer(c_int), intent(out) :: status

    call knl_raw_setf32groupparameter(group, name, row, value, status, len_trim(name, c_int))
  end subroutine set_f32_group_parameter

  subroutine set_f64_group_parameter(group, name, row, value, status)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    real(c_double), intent(in) :: value
    integer(c_int), intent(out) :: status

    call knl_raw_setf64groupparameter(group, name, row, value, status, len_trim(name, c_int))
  end subroutine set_f64_group_parameter

  subroutine set_text_group_parameter(group, name, row, value, status)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    character(len=*), intent(in) :: value
    integer(c_int), intent(out) :: status

    call knl_raw_setstrgroupparameter(group, name, row, value, status, len_trim(name, c_int), &
        len_trim(value, c_int))
  end subroutine set_text_group_parameter

  subroutine set_i32_array_group_parameter(group, name, row, value, status)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    integer(c_int), intent(in) :: value(:)
    integer(c_int), intent(out) :: status
    integer(c_int), target :: elements(max(1, size(value)))

    elements(:size(value)) = value
    call knl_raw_seti32arraygroupparameter(group, name, row, c_loc(elements), &
        size(value, kind=c_int), status, len_trim(name, c_int))
  end subroutine set_i32_array_group_parameter

  subroutine set_i64_array_group_parameter(group, name, row, value, status)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    integer(c_int64_t), intent(in) :: value(:)
    integer(c_int), intent(out) :: status
    integer(c_int64_t), target :: elements(max(1, size(value)))

    elements(:size(value)) = value
    call knl_raw_seti64arraygroupparameter(group, name, row, c_loc(elements), &
        size(value, kind=c_int), status, len_trim(name, c_int))
  end subroutine set_i64_array_group_parameter

  subroutine set_f32_array_group_parameter(group, name, row, value, status)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    real(c_float), intent(in) :: value(:)
    integer(c_int), intent(out) :: status
    real(c_float), target :: elements(max(1, size(value)))

    elements(:size(value)) = value
    call knl_raw_setf32arraygroupparameter(group, name, row, c_loc(elements), &
        size(value, kind=c_int), status, len_trim(name, c_int))
  end subroutine set_f32_array_group_parameter

  subroutine set_f64_array_group_parameter(group, name, row, value, status)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    real(c_double), intent(in) :: value(:)
    integer(c_int), intent(out) :: status
    real(c_double), target :: elements(max(1, size(value)))

    elements(:size(value)) = value
    call knl_raw_setf64arraygroupparameter(group, name, row, c_loc(elements), &
        size(value, kind=c_int), status, len_trim(name, c_int))
  end subroutine set_f64_array_group_parameter

  !> The group that is the value of a group's parameter; rows are counted from 1. When there is no
  !> such parameter, a new group without rows is made and stored. `status`: 1, or 0 without a group.
  subroutine knl_set_group_parameter_group(group, name, row, value, status)
    type(c_ptr), intent(in) :: group
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: row
    type(c_ptr), intent(inout) :: value
    integer(c_int), intent(out) :: status

    call knl_raw_setgrpgroupparameter(group, name, row, value, status, len_trim(name, c_int))
  end subroutine knl_set_group_parameter_group

  ! ---- Libraries ----

  !> Does nothing: the interface has this function, and it neither looks at the library nor writes
  !> `status`. Whether a library has a parameter is what knl_get_library_parameter says.
  subroutine knl_is_library_attribute_exist(library, name, status)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    integer(c_int), intent(inout) :: status

    call knl_raw_islibraryattributeexist(library, name, status, len_trim(name, c_int))
  end subroutine knl_is_library_attribute_exist

  subroutine get_i32_library_parameter(library, name, value, found)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    integer(c_int), intent(inout) :: value
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_geti32libraryparameter(library, name, value, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine get_i32_library_parameter

  subroutine get_i64_library_parameter(library, name, value, found)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    integer(c_int64_t), intent(inout) :: value
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_geti64libraryparameter(library, name, value, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine get_i64_library_parameter

  subroutine get_f32_library_parameter(library, name, value, found)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    real(c_float), intent(inout) :: value
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_getf32libraryparameter(library, name, value, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine get_f32_library_parameter

  subroutine get_f64_library_parameter(library, name, value, found)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    real(c_double), intent(inout) :: value
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_getf64libraryparameter(library, name, value, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine get_f64_library_parameter

  subroutine get_text_library_parameter(library, name, value, found)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    character(len=*), intent(inout) :: value
    logical, intent(out) :: found
    character(len=:, kind=c_char), allocatable :: whole

    call whole_text_of_library_parameter(library, name, whole)
    found = allocated(whole)
    if (found) value = first_line(whole)
  end subroutine get_text_library_parameter

  ! The value as text, with all its lines; not allocated where there is none.
  subroutine whole_text_of_library_parameter(library, name, whole)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    character(len=:, kind=c_char), allocatable, intent(out) :: whole
    character(len=1, kind=c_char) :: nothing(1)
    character(len=1, kind=c_char), allocatable :: text(:)
    integer(c_int) :: length

    length = c_getstrlibraryparametern(library, c_text(name), nothing, 0)
    if (length < 0) return
    allocate (text(length + 1))
    length = c_getstrlibraryparametern(library, c_text(name), text, length + 1)
    whole = joined(text(:length))
  end subroutine whole_text_of_library_parameter

  !> Reads the parameter `name` as text of any length, with all its lines. `found`: whether there is
  !> such a parameter; `value` stays as it was where there is none.
  subroutine knl_get_library_parameter_text(library, name, value, found)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    character(len=:), allocatable, intent(inout) :: value
    logical, intent(out) :: found
    character(len=:, kind=c_char), allocatable :: whole

    call whole_text_of_library_parameter(library, name, whole)
    found = allocated(whole)
    if (found) value = whole
  end subroutine knl_get_library_parameter_text

  !> Reads a list of texts (`text_list` in a manifest) into an array: each element is as long as the
  !> longest text, blanks follow a shorter one. An empty list has no element. `found`: whether there
  !> is such a parameter; `value` stays as it was where there is none.
  subroutine knl_get_library_parameter_texts(library, name, value, found)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    character(len=:), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    character(len=:, kind=c_char), allocatable :: whole

    call whole_text_of_library_parameter(library, name, whole)
    found = allocated(whole)
    if (found) call split_lines(whole, value)
  end subroutine knl_get_library_parameter_texts

  subroutine get_i32_array_library_parameter(library, name, value, found)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    integer(c_int), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    integer(c_int) :: nothing(1)
    integer(c_int) :: count

    count = c_copyi32libraryparameter(library, c_text(name), nothing, 0)
    found = count >= 0
    if (.not. found) return
    if (allocated(value)) deallocate (value)
    allocate (value(count))
    if (count > 0) count = c_copyi32libraryparameter(library, c_text(name), value, count)
  end subroutine get_i32_array_library_parameter

  subroutine get_i64_array_library_parameter(library, name, value, found)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    integer(c_int64_t), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    integer(c_int64_t) :: nothing(1)
    integer(c_int) :: count

    count = c_copyi64libraryparameter(library, c_text(name), nothing, 0)
    found = count >= 0
    if (.not. found) return
    if (allocated(value)) deallocate (value)
    allocate (value(count))
    if (count > 0) count = c_copyi64libraryparameter(library, c_text(name), value, count)
  end subroutine get_i64_array_library_parameter

  subroutine get_f32_array_library_parameter(library, name, value, found)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    real(c_float), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    real(c_float) :: nothing(1)
    integer(c_int) :: count

    count = c_copyf32libraryparameter(library, c_text(name), nothing, 0)
    found = count >= 0
    if (.not. found) return
    if (allocated(value)) deallocate (value)
    allocate (value(count))
    if (count > 0) count = c_copyf32libraryparameter(library, c_text(name), value, count)
  end subroutine get_f32_array_library_parameter

  subroutine get_f64_array_library_parameter(library, name, value, found)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    real(c_double), allocatable, intent(inout) :: value(:)
    logical, intent(out) :: found
    real(c_double) :: nothing(1)
    integer(c_int) :: count

    count = c_copyf64libraryparameter(library, c_text(name), nothing, 0)
    found = count >= 0
    if (.not. found) return
    if (allocated(value)) deallocate (value)
    allocate (value(count))
    if (count > 0) count = c_copyf64libraryparameter(library, c_text(name), value, count)
  end subroutine get_f64_array_library_parameter

  !> The group or library that is the value of a library's parameter.
  subroutine knl_get_library_parameter_group(library, name, value, found)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    type(c_ptr), intent(inout) :: value
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_getgrouplibraryparameter(library, name, value, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine knl_get_library_parameter_group

  subroutine knl_get_library_parameter_library(library, name, value, found)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    type(c_ptr), intent(inout) :: value
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_getliblibraryparameter(library, name, value, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine knl_get_library_parameter_library

  subroutine set_i32_library_parameter(library, name, value, status)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: value
    integer(c_int), intent(out) :: status

    call knl_raw_seti32libraryparameter(library, name, value, status, len_trim(name, c_int))
  end subroutine set_i32_library_parameter

  subroutine set_i64_library_parameter(library, name, value, status)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    integer(c_int64_t), intent(in) :: value
    integer(c_int), intent(out) :: status

    call knl_raw_seti64libraryparameter(library, name, value, status, len_trim(name, c_int))
  end subroutine set_i64_library_parameter

  subroutine set_f32_library_parameter(library, name, value, status)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    real(c_float), intent(in) :: value
    integer(c_int), intent(out) :: status

    call knl_raw_setf32libraryparameter(library, name, value, status, len_trim(name, c_int))
  end subroutine set_f32_library_parameter

  subroutine set_f64_library_parameter(library, name, value, status)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    real(c_double), intent(in) :: value
    integer(c_int), intent(out) :: status

    call knl_raw_setf64libraryparameter(library, name, value, status, len_trim(name, c_int))
  end subroutine set_f64_library_parameter

  subroutine set_text_library_parameter(library, name, value, status)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    character(len=*), intent(in) :: value
    integer(c_int), intent(out) :: status

    call knl_raw_setstringlibraryparameter(library, name, value, status, len_trim(name, c_int), &
        len_trim(value, c_int))
  end subroutine set_text_library_parameter

  subroutine set_i32_array_library_parameter(library, name, value, status)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: value(:)
    integer(c_int), intent(out) :: status
    integer(c_int), target :: elements(max(1, size(value)))

    elements(:size(value)) = value
    call knl_raw_seti32arraylibraryparameter(library, name, c_loc(elements), &
        size(value, kind=c_int), status, len_trim(name, c_int))
  end subroutine set_i32_array_library_parameter

  subroutine set_i64_array_library_parameter(library, name, value, status)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    integer(c_int64_t), intent(in) :: value(:)
    integer(c_int), intent(out) :: status
    integer(c_int64_t), target :: elements(max(1, size(value)))

    elements(:size(value)) = value
    call knl_raw_seti64arraylibraryparameter(library, name, c_loc(elements), &
        size(value, kind=c_int), status, len_trim(name, c_int))
  end subroutine set_i64_array_library_parameter

  subroutine set_f32_array_library_parameter(library, name, value, status)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    real(c_float), intent(in) :: value(:)
    integer(c_int), intent(out) :: status
    real(c_float), target :: elements(max(1, size(value)))

    elements(:size(value)) = value
    call knl_raw_setf32arraylibraryparameter(library, name, c_loc(elements), &
        size(value, kind=c_int), status, len_trim(name, c_int))
  end subroutine set_f32_array_library_parameter

  subroutine set_f64_array_library_parameter(library, name, value, status)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    real(c_double), intent(in) :: value(:)
    integer(c_int), intent(out) :: status
    real(c_double), target :: elements(max(1, size(value)))

    elements(:size(value)) = value
    call knl_raw_setf64arraylibraryparameter(library, name, c_loc(elements), &
        size(value, kind=c_int), status, len_trim(name, c_int))
  end subroutine set_f64_array_library_parameter

  !> The group that is the value of a library's parameter. When the parameter does not exist, a new
  !> group without rows is made and stored. `status`: 1, or 0 without a group.
  subroutine knl_set_library_parameter_group(library, name, value, status)
    type(c_ptr), intent(in) :: library
    character(len=*), intent(in) :: name
    type(c_ptr), intent(inout) :: value
    integer(c_int), intent(out) :: status

    call knl_raw_setgrplibraryparameter(library, name, value, status, len_trim(name, c_int))
  end subroutine knl_set_library_parameter_group

  ! ---- Trace attributes ----

  !> Gives the traces of a set the attribute `name`, as the schema defines it; a 32-bit integer when
  !> the schema does not. `status`: 1 done, 0 refused.
  subroutine knl_define_trace_attribute(set, name, status)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    integer(c_int), intent(out) :: status

    status = 0
    call knl_raw_definetraceattribute(set, name, status, len_trim(name, c_int))
  end subroutine knl_define_trace_attribute

  !> Whether a set has the attribute `name`. `status`: 0 when it has, 1 when it has not.
  subroutine knl_is_trace_attribute_exist(set, name, status)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    integer(c_int), intent(out) :: status

    status = 1
    call knl_raw_istraceattributeexist(set, name, status, len_trim(name, c_int))
  end subroutine knl_is_trace_attribute_exist

  subroutine get_i32_trace_attribute(set, name, value, status, trace)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    integer(c_int), intent(inout) :: value
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace

    if (present(trace)) then
      call knl_raw_mgeti32traceattribute(set, name, value, trace, status, len_trim(name, c_int))
    else
      call knl_raw_geti32traceattribute(set, name, value, status, len_trim(name, c_int))
    end if
  end subroutine get_i32_trace_attribute

  subroutine get_i64_trace_attribute(set, name, value, status, trace)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    integer(c_int64_t), intent(inout) :: value
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace

    if (present(trace)) then
      call knl_raw_mgeti64traceattribute(set, name, value, trace, status, len_trim(name, c_int))
    else
      call knl_raw_geti64traceattribute(set, name, value, status, len_trim(name, c_int))
    end if
  end subroutine get_i64_trace_attribute

  subroutine get_f32_trace_attribute(set, name, value, status, trace)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    real(c_float), intent(inout) :: value
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace

    if (present(trace)) then
      call knl_raw_mgetf32traceattribute(set, name, value, trace, status, len_trim(name, c_int))
    else
      call knl_raw_getf32traceattribute(set, name, value, status, len_trim(name, c_int))
    end if
  end subroutine get_f32_trace_attribute

  subroutine get_f64_trace_attribute(set, name, value, status, trace)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    real(c_double), intent(inout) :: value
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace

    if (present(trace)) then
      call knl_raw_mgetf64traceattribute(set, name, value, trace, status, len_trim(name, c_int))
    else
      call knl_raw_getf64traceattribute(set, name, value, status, len_trim(name, c_int))
    end if
  end subroutine get_f64_trace_attribute

  subroutine get_text_trace_attribute(set, name, value, status, trace)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    character(len=*), intent(inout) :: value
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace
    character(len=1, kind=c_char) :: nothing(1)
    character(len=1, kind=c_char), allocatable :: text(:)
    integer(c_int) :: length

    length = c_mgetstrtraceattributen(set, c_text(name), given_or_first(trace) - 1, nothing, 0)
    status = merge(1, 0, length < 0)
    if (length < 0) return
    allocate (text(length + 1))
    length = c_mgetstrtraceattributen(set, c_text(name), given_or_first(trace) - 1, text, &
        length + 1)
    value = first_line(joined(text(:length)))
  end subroutine get_text_trace_attribute

  subroutine get_i32_array_trace_attribute(set, name, value, status, trace)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    integer(c_int), intent(inout) :: value(:)
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace
    integer(c_int), target :: elements(max(1, size(value)))

    elements(:size(value)) = value
    if (present(trace)) then
      call knl_raw_mgeti32arraytraceattribute(set, name, c_loc(elements), size(value, kind=c_int), &
          trace, status, len_trim(name, c_int))
    else
      call knl_raw_geti32arraytraceattribute(set, name, c_loc(elements), size(value, kind=c_int), &
          status, len_trim(name, c_int))
    end if
    value = elements(:size(value))
  end subroutine get_i32_array_trace_attribute

  subroutine get_i64_array_trace_attribute(set, name, value, status, trace)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    integer(c_int64_t), intent(inout) :: value(:)
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace
    integer(c_int64_t), target :: elements(max(1, size(value)))

    elements(:size(value)) = value
    if (present(trace)) then
      call knl_raw_mgeti64arraytraceattribute(set, name, c_loc(elements), size(value, kind=c_int), &
          trace, status, len_trim(name, c_int))
    else
      call knl_raw_geti64arraytraceattribute(set, name, c_loc(elements), size(value, kind=c_int), &
          status, len_trim(name, c_int))
    end if
    value = elements(:size(value))
  end subroutine get_i64_array_trace_attribute

  subroutine get_f32_array_trace_attribute(set, name, value, status, trace)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    real(c_float), intent(inout) :: value(:)
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace
    real(c_float), target :: elements(max(1, size(value)))

    elements(:size(value)) = value
    if (present(trace)) then
      call knl_raw_mgetf32arraytraceattribute(set, name, c_loc(elements), size(value, kind=c_int), &
          trace, status, len_trim(name, c_int))
    else
      call knl_raw_getf32arraytraceattribute(set, name, c_loc(elements), size(value, kind=c_int), &
          status, len_trim(name, c_int))
    end if
    value = elements(:size(value))
  end subroutine get_f32_array_trace_attribute

  subroutine get_f64_array_trace_attribute(set, name, value, status, trace)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    real(c_double), intent(inout) :: value(:)
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace
    real(c_double), target :: elements(max(1, size(value)))

    elements(:size(value)) = value
    if (present(trace)) then
      call knl_raw_mgetf64arraytraceattribute(set, name, c_loc(elements), size(value, kind=c_int), &
          trace, status, len_trim(name, c_int))
    else
      call knl_raw_getf64arraytraceattribute(set, name, c_loc(elements), size(value, kind=c_int), &
          status, len_trim(name, c_int))
    end if
    value = elements(:size(value))
  end subroutine get_f64_array_trace_attribute

  subroutine set_i32_trace_attribute(set, name, value, status, trace)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: value
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace

    if (present(trace)) then
      call knl_raw_mseti32traceattribute(set, name, value, trace, status, len_trim(name, c_int))
    else
      call knl_raw_seti32traceattribute(set, name, value, status, len_trim(name, c_int))
    end if
  end subroutine set_i32_trace_attribute

  subroutine set_i64_trace_attribute(set, name, value, status, trace)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    integer(c_int64_t), intent(in) :: value
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace

    if (present(trace)) then
      call knl_raw_mseti64traceattribute(set, name, value, trace, status, len_trim(name, c_int))
    else
      call knl_raw_seti64traceattribute(set, name, value, status, len_trim(name, c_int))
    end if
  end subroutine set_i64_trace_attribute

  subroutine set_f32_trace_attribute(set, name, value, status, trace)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    real(c_float), intent(in) :: value
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace

    if (present(trace)) then
      call knl_raw_msetf32traceattribute(set, name, value, trace, status, len_trim(name, c_int))
    else
      call knl_raw_setf32traceattribute(set, name, value, status, len_trim(name, c_int))
    end if
  end subroutine set_f32_trace_attribute

  subroutine set_f64_trace_attribute(set, name, value, status, trace)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    real(c_double), intent(in) :: value
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace

    if (present(trace)) then
      call knl_raw_msetf64traceattribute(set, name, value, trace, status, len_trim(name, c_int))
    else
      call knl_raw_setf64traceattribute(set, name, value, status, len_trim(name, c_int))
    end if
  end subroutine set_f64_trace_attribute

  subroutine set_text_trace_attribute(set, name, value, status, trace)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    character(len=*), intent(in) :: value
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace

    if (present(trace)) then
      call knl_raw_msetstringtraceattribute(set, name, terminated(value), trace, status, &
          len_trim(name, c_int))
    else
      call knl_raw_setstringtraceattribute(set, name, terminated(value), status, &
          len_trim(name, c_int))
    end if
  end subroutine set_text_trace_attribute

  subroutine set_i32_array_trace_attribute(set, name, value, status, trace)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: value(:)
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace
    integer(c_int), target :: elements(max(1, size(value)))

    elements(:size(value)) = value
    if (present(trace)) then
      call knl_raw_mseti32arraytraceattribute(set, name, c_loc(elements), size(value, kind=c_int), &
          trace, status, len_trim(name, c_int))
    else
      call knl_raw_seti32arraytraceattribute(set, name, c_loc(elements), size(value, kind=c_int), &
          status, len_trim(name, c_int))
    end if
  end subroutine set_i32_array_trace_attribute

  subroutine set_i64_array_trace_attribute(set, name, value, status, trace)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    integer(c_int64_t), intent(in) :: value(:)
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace
    integer(c_int64_t), target :: elements(max(1, size(value)))

    elements(:size(value)) = value
    if (present(trace)) then
      call knl_raw_mseti64arraytraceattribute(set, name, c_loc(elements), size(value, kind=c_int), &
          trace, status, len_trim(name, c_int))
    else
      call knl_raw_seti64arraytraceattribute(set, name, c_loc(elements), size(value, kind=c_int), &
          status, len_trim(name, c_int))
    end if
  end subroutine set_i64_array_trace_attribute

  subroutine set_f32_array_trace_attribute(set, name, value, status, trace)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    real(c_float), intent(in) :: value(:)
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace
    real(c_float), target :: elements(max(1, size(value)))

    elements(:size(value)) = value
    if (present(trace)) then
      call knl_raw_msetf32arraytraceattribute(set, name, c_loc(elements), size(value, kind=c_int), &
          trace, status, len_trim(name, c_int))
    else
      call knl_raw_setf32arraytraceattribute(set, name, c_loc(elements), size(value, kind=c_int), &
          status, len_trim(name, c_int))
    end if
  end subroutine set_f32_array_trace_attribute

  subroutine set_f64_array_trace_attribute(set, name, value, status, trace)
    type(c_ptr), intent(in) :: set
    character(len=*), intent(in) :: name
    real(c_double), intent(in) :: value(:)
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace
    real(c_double), target :: elements(max(1, size(value)))

    elements(:size(value)) = value
    if (present(trace)) then
      call knl_raw_msetf64arraytraceattribute(set, name, c_loc(elements), size(value, kind=c_int), &
          trace, status, len_trim(name, c_int))
    else
      call knl_raw_setf64arraytraceattribute(set, name, c_loc(elements), size(value, kind=c_int), &
          status, len_trim(name, c_int))
    end if
  end subroutine set_f64_array_trace_attribute

  ! ---- Many trace attributes at once ----

  !> A list of attribute names, for a module that reads or writes the same ones in every trace: one
  !> call per trace then does for all of them. The list serves any number of trace sets, and notices
  !> attributes that they come to have later. It ends with the module, unless it is freed before.
  !> `status`: 0 done, 1 refused (no module is running); `list` is a null handle then.
  subroutine knl_bld_attribute_list(names, list, status)
    character(len=*), intent(in) :: names(:)
    type(c_ptr), intent(out) :: list
    integer(c_int), intent(out) :: status

    call knl_raw_bldattributelist(names, size(names, kind=c_int), list, status, &
        len(names, kind=c_int))
  end subroutine knl_bld_attribute_list

  !> Frees a list of attributes; the handle is null then.
  subroutine knl_free_attribute_list(list)
    type(c_ptr), intent(inout) :: list

    call knl_raw_freeattributelist(list)
  end subroutine knl_free_attribute_list

  !> The number of names in a list of attributes.
  subroutine knl_get_attribute_list_size(list, count)
    type(c_ptr), intent(in) :: list
    integer(c_int), intent(out) :: count

    call knl_raw_getattributelistsize(list, count)
  end subroutine knl_get_attribute_list_size

  !> How a trace set stores the attributes of a list: `types(i)` is 0 when it does not have the i-th
  !> one, 1 for a text, 2 and 3 for integers of 32 and 64 bits, 4 and 5 for reals of 32 and 64 bits,
  !> 6 to 9 for arrays of these. `count`: how many of them it has.
  subroutine knl_get_attribute_list_presence(list, set, types, count)
    type(c_ptr), intent(in) :: list
    type(c_ptr), intent(in) :: set
    integer(c_int), intent(inout) :: types(:)
    integer(c_int), intent(out) :: count

    call knl_raw_getattributelistpresence(list, set, types, size(types, kind=c_int), count)
  end subroutine knl_get_attribute_list_presence

  subroutine get_i32_trace_attributes(list, set, values, count, trace)
    type(c_ptr), intent(in) :: list
    type(c_ptr), intent(in) :: set
    integer(c_int), intent(inout) :: values(:)
    integer(c_int), intent(out) :: count
    integer(c_int), intent(in), optional :: trace

    call knl_raw_geti32traceattributes(list, set, trace_or_first(trace), values, &
        size(values, kind=c_int), count)
  end subroutine get_i32_trace_attributes

  subroutine get_i64_trace_attributes(list, set, values, count, trace)
    type(c_ptr), intent(in) :: list
    type(c_ptr), intent(in) :: set
    integer(c_int64_t), intent(inout) :: values(:)
    integer(c_int), intent(out) :: count
    integer(c_int), intent(in), optional :: trace

    call knl_raw_geti64traceattributes(list, set, trace_or_first(trace), values, &
        size(values, kind=c_int), count)
  end subroutine get_i64_trace_attributes

  subroutine get_f32_trace_attributes(list, set, values, count, trace)
    type(c_ptr), intent(in) :: list
    type(c_ptr), intent(in) :: set
    real(c_float), intent(inout) :: values(:)
    integer(c_int), intent(out) :: count
    integer(c_int), intent(in), optional :: trace

    call knl_raw_getf32traceattributes(list, set, trace_or_first(trace), values, &
        size(values, kind=c_int), count)
  end subroutine get_f32_trace_attributes

  subroutine get_f64_trace_attributes(list, set, values, count, trace)
    type(c_ptr), intent(in) :: list
    type(c_ptr), intent(in) :: set
    real(c_double), intent(inout) :: values(:)
    integer(c_int), intent(out) :: count
    integer(c_int), intent(in), optional :: trace

    call knl_raw_getf64traceattributes(list, set, trace_or_first(trace), values, &
        size(values, kind=c_int), count)
  end subroutine get_f64_trace_attributes

  subroutine set_i32_trace_attributes(list, set, values, count, trace)
    type(c_ptr), intent(in) :: list
    type(c_ptr), intent(in) :: set
    integer(c_int), intent(in) :: values(:)
    integer(c_int), intent(out) :: count
    integer(c_int), intent(in), optional :: trace

    call knl_raw_seti32traceattributes(list, set, trace_or_first(trace), values, &
        size(values, kind=c_int), count)
  end subroutine set_i32_trace_attributes

  subroutine set_i64_trace_attributes(list, set, values, count, trace)
    type(c_ptr), intent(in) :: list
    type(c_ptr), intent(in) :: set
    integer(c_int64_t), intent(in) :: values(:)
    integer(c_int), intent(out) :: count
    integer(c_int), intent(in), optional :: trace

    call knl_raw_seti64traceattributes(list, set, trace_or_first(trace), values, &
        size(values, kind=c_int), count)
  end subroutine set_i64_trace_attributes

  subroutine set_f32_trace_attributes(list, set, values, count, trace)
    type(c_ptr), intent(in) :: list
    type(c_ptr), intent(in) :: set
    real(c_float), intent(in) :: values(:)
    integer(c_int), intent(out) :: count
    integer(c_int), intent(in), optional :: trace

    call knl_raw_setf32traceattributes(list, set, trace_or_first(trace), values, &
        size(values, kind=c_int), count)
  end subroutine set_f32_trace_attributes

  subroutine set_f64_trace_attributes(list, set, values, count, trace)
    type(c_ptr), intent(in) :: list
    type(c_ptr), intent(in) :: set
    real(c_double), intent(in) :: values(:)
    integer(c_int), intent(out) :: count
    integer(c_int), intent(in), optional :: trace

    call knl_raw_setf64traceattributes(list, set, trace_or_first(trace), values, &
        size(values, kind=c_int), count)
  end subroutine set_f64_trace_attributes

  pure function trace_or_first(trace) result(number)
    integer(c_int), intent(in), optional :: trace
    integer(c_int) :: number

    number = 1
    if (present(trace)) number = trace
  end function trace_or_first

  ! ---- Schema ----

  !> The type code of the attribute definition `name`: 1 text, 2 integer, 3 64-bit integer, 4 real,
  !> 5 double precision, 9 and 10 texts of 32 and 64 characters; -1 when there is no definition.
  subroutine knl_get_trace_attribute_type(name, type_code)
    character(len=*), intent(in) :: name
    integer(c_int), intent(out) :: type_code

    call knl_raw_gettraceattributetype(name, type_code, len_trim(name, c_int))
  end subroutine knl_get_trace_attribute_type

  !> The number of elements of the attribute definition `name`; -1 when there is no definition.
  subroutine knl_get_trace_attribute_dimension(name, dimension)
    character(len=*), intent(in) :: name
    integer(c_int), intent(out) :: dimension

    call knl_raw_gettraceattributedimension(name, dimension, len_trim(name, c_int))
  end subroutine knl_get_trace_attribute_dimension

  !> Leaves `description` as it is: the interface has this function, and it hands nothing out. C
  !> modules read descriptions with knl_getTraceAttributeDescription.
  subroutine knl_get_trace_attribute_description(name, description)
    character(len=*), intent(in) :: name
    character(len=*), intent(inout) :: description

    call knl_raw_gettraceattributedescription(name, description, len_trim(name, c_int), &
        len(description, c_int))
  end subroutine knl_get_trace_attribute_description

  ! ---- Resources ----

  subroutine get_i32_resource(name, array, found)
    character(len=*), intent(in) :: name
    integer(c_int), pointer, intent(inout) :: array(:)
    logical, intent(out) :: found
    type(array_descriptor) :: stored
    integer(c_int) :: istat

    stored%data = c_null_ptr
    call knl_raw_getmodulei32resource(name, stored, istat, len_trim(name, c_int))
    found = istat == 1
    if (found) call point_i32(stored, array)
  end subroutine get_i32_resource

  subroutine get_i64_resource(name, array, found)
    character(len=*), intent(in) :: name
    integer(c_int64_t), pointer, intent(inout) :: array(:)
    logical, intent(out) :: found
    type(array_descriptor) :: stored
    integer(c_int) :: istat

    stored%data = c_null_ptr
    call knl_raw_getmodulei64resource(name, stored, istat, len_trim(name, c_int))
    found = istat == 1
    if (found) call point_i64(stored, array)
  end subroutine get_i64_resource

  subroutine get_f32_resource(name, array, found)
    character(len=*), intent(in) :: name
    real(c_float), pointer, intent(inout) :: array(:)
    logical, intent(out) :: found
    type(array_descriptor) :: stored
    integer(c_int) :: istat

    stored%data = c_null_ptr
    call knl_raw_getmodulef32resource(name, stored, istat, len_trim(name, c_int))
    found = istat == 1
    if (found) call point_f32(stored, array)
  end subroutine get_f32_resource

  subroutine get_f64_resource(name, array, found)
    character(len=*), intent(in) :: name
    real(c_double), pointer, intent(inout) :: array(:)
    logical, intent(out) :: found
    type(array_descriptor) :: stored
    integer(c_int) :: istat

    stored%data = c_null_ptr
    call knl_raw_getmodulef64resource(name, stored, istat, len_trim(name, c_int))
    found = istat == 1
    if (found) call point_f64(stored, array)
  end subroutine get_f64_resource

  subroutine get_text_resource(name, array, found)
    character(len=*), intent(in) :: name
    character(len=*), pointer, intent(inout) :: array(:)
    logical, intent(out) :: found
    type(array_descriptor) :: stored
    integer(c_int) :: istat

    stored%data = c_null_ptr
    call knl_raw_getmodulestrresource(name, stored, len(array, c_int), istat, len_trim(name, c_int))
    found = istat == 1
    if (found) call point_text(stored, array)
  end subroutine get_text_resource

  subroutine set_i32_resource(name, array, status)
    character(len=*), intent(in) :: name
    integer(c_int), pointer, intent(in) :: array(:)
    integer(c_int), intent(out) :: status

    call knl_raw_setmoduleresource(name, address_of_i32(array), size(array, kind=c_int), status, &
        len_trim(name, c_int))
  end subroutine set_i32_resource

  subroutine set_i64_resource(name, array, status)
    character(len=*), intent(in) :: name
    integer(c_int64_t), pointer, intent(in) :: array(:)
    integer(c_int), intent(out) :: status

    call knl_raw_setmoduleresource(name, address_of_i64(array), size(array, kind=c_int), status, &
        len_trim(name, c_int))
  end subroutine set_i64_resource

  subroutine set_f32_resource(name, array, status)
    character(len=*), intent(in) :: name
    real(c_float), pointer, intent(in) :: array(:)
    integer(c_int), intent(out) :: status

    call knl_raw_setmoduleresource(name, address_of_f32(array), size(array, kind=c_int), status, &
        len_trim(name, c_int))
  end subroutine set_f32_resource

  subroutine set_f64_resource(name, array, status)
    character(len=*), intent(in) :: name
    real(c_double), pointer, intent(in) :: array(:)
    integer(c_int), intent(out) :: status

    call knl_raw_setmoduleresource(name, address_of_f64(array), size(array, kind=c_int), status, &
        len_trim(name, c_int))
  end subroutine set_f64_resource

  subroutine set_text_resource(name, array, status)
    character(len=*), intent(in) :: name
    character(len=*), pointer, intent(in) :: array(:)
    integer(c_int), intent(out) :: status

    call knl_raw_setmoduleresource(name, address_of_text(array), size(array, kind=c_int), status, &
        len_trim(name, c_int))
  end subroutine set_text_resource

  !> Stores a copy of `size` bytes at `address` as the module resource `name`: of an integer, say,
  !> or of a variable of a `bind(C)` type, with `c_loc(variable)` and `c_sizeof(variable)`. Later
  !> changes of the variable do not reach the copy. `status`: 1 stored, 0 when no module is running.
  subroutine knl_set_module_struct_resource(name, address, size, status)
    character(len=*), intent(in) :: name
    type(c_ptr), intent(in) :: address
    integer(c_int), intent(in) :: size
    integer(c_int), intent(out) :: status

    call knl_raw_setmodulestructresource(name, address, size, status, len_trim(name, c_int))
  end subroutine knl_set_module_struct_resource

  !> Copies the block stored by knl_set_module_struct_resource to `address`, with the size that it
  !> was stored with: the variable there must have room for it.
  subroutine knl_get_module_struct_resource(name, address, found)
    character(len=*), intent(in) :: name
    type(c_ptr), intent(in) :: address
    logical, intent(out) :: found
    integer(c_int) :: istat

    call knl_raw_getmodulestructresource(name, address, istat, len_trim(name, c_int))
    found = istat == 1
  end subroutine knl_get_module_struct_resource

  ! ---- Memory ----

  subroutine allocate_i32(array, count)
    integer(c_int), pointer, intent(out) :: array(:)
    integer(c_int), intent(in) :: count
    type(array_descriptor) :: block

    if (count == 0) then
      call knl_zero_array(array)
      return
    end if
    block%data = c_null_ptr
    call knl_raw_allocatei32resource(block, count)
    call point_i32(block, array)
  end subroutine allocate_i32

  subroutine allocate_i64(array, count)
    integer(c_int64_t), pointer, intent(out) :: array(:)
    integer(c_int), intent(in) :: count
    type(array_descriptor) :: block

    if (count == 0) then
      call knl_zero_array(array)
      return
    end if
    block%data = c_null_ptr
    call knl_raw_allocatei64resource(block, count)
    call point_i64(block, array)
  end subroutine allocate_i64

  subroutine allocate_f32(array, count)
    real(c_float), pointer, intent(out) :: array(:)
    integer(c_int), intent(in) :: count
    type(array_descriptor) :: block

    if (count == 0) then
      call knl_zero_array(array)
      return
    end if
    block%data = c_null_ptr
    call knl_raw_allocatef32resource(block, count)
    call point_f32(block, array)
  end subroutine allocate_f32

  subroutine allocate_f64(array, count)
    real(c_double), pointer, intent(out) :: array(:)
    integer(c_int), intent(in) :: count
    type(array_descriptor) :: block

    if (count == 0) then
      call knl_zero_array(array)
      return
    end if
    block%data = c_null_ptr
    call knl_raw_allocatef64resource(block, count)
    call point_f64(block, array)
  end subroutine allocate_f64

  subroutine allocate_text(array, count)
    character(len=*), pointer, intent(out) :: array(:)
    integer(c_int), intent(in) :: count
    type(array_descriptor) :: block

    if (count == 0) then
      call knl_zero_array(array)
      return
    end if
    block%data = c_null_ptr
    call knl_raw_allocatestrresource(block, len(array, c_int), count)
    call point_text(block, array)
  end subroutine allocate_text

  subroutine zero_i32(array)
    integer(c_int), pointer, intent(out) :: array(:)
    type(array_descriptor) :: empty

    call knl_raw_zeroi32array(empty)
    call point_i32(empty, array)
  end subroutine zero_i32

  subroutine zero_i64(array)
    integer(c_int64_t), pointer, intent(out) :: array(:)
    type(array_descriptor) :: empty

    call knl_raw_zeroi64array(empty)
    call point_i64(empty, array)
  end subroutine zero_i64

  subroutine zero_f32(array)
    real(c_float), pointer, intent(out) :: array(:)
    type(array_descriptor) :: empty

    call knl_raw_zerof32array(empty)
    call point_f32(empty, array)
  end subroutine zero_f32

  subroutine zero_f64(array)
    real(c_double), pointer, intent(out) :: array(:)
    type(array_descriptor) :: empty

    call knl_raw_zerof64array(empty)
    call point_f64(empty, array)
  end subroutine zero_f64

  subroutine zero_text(array)
    character(len=*), pointer, intent(out) :: array(:)
    type(array_descriptor) :: empty

    call knl_raw_zerostrarray(empty, len(array, c_int))
    call point_text(empty, array)
  end subroutine zero_text

  subroutine free_i32(array)
    integer(c_int), pointer, intent(inout) :: array(:)

    call knl_raw_freeresource(address_of_i32(array))
    nullify (array)
  end subroutine free_i32

  subroutine free_i64(array)
    integer(c_int64_t), pointer, intent(inout) :: array(:)

    call knl_raw_freeresource(address_of_i64(array))
    nullify (array)
  end subroutine free_i64

  subroutine free_f32(array)
    real(c_float), pointer, intent(inout) :: array(:)

    call knl_raw_freeresource(address_of_f32(array))
    nullify (array)
  end subroutine free_f32

  subroutine free_f64(array)
    real(c_double), pointer, intent(inout) :: array(:)

    call knl_raw_freeresource(address_of_f64(array))
    nullify (array)
  end subroutine free_f64

  subroutine free_text(array)
    character(len=*), pointer, intent(inout) :: array(:)

    call knl_raw_freeresource(address_of_text(array))
    nullify (array)
  end subroutine free_text

  ! ---- Files ----

  !> Opens `file` for reading. `unit` is a file descriptor of the system, not a unit of Fortran; -1
  !> when the file cannot be opened.
  subroutine knl_file_open(file, unit)
    character(len=*), intent(in) :: file
    integer(c_int), intent(out) :: unit

    call knl_raw_fileopen(file, unit, len_trim(file, c_int))
  end subroutine knl_file_open

  !> Creates `file` for writing, or empties it. `unit` as with knl_file_open.
  subroutine knl_file_create(file, unit)
    character(len=*), intent(in) :: file
    integer(c_int), intent(out) :: unit

    call knl_raw_filecreate(file, unit, len_trim(file, c_int))
  end subroutine knl_file_create

  !> Opens `file` with the flags and the permission bits of the system's `open`. `unit` as with
  !> knl_file_open. (The interface's own function reads the name up to a NUL, which is put there.)
  subroutine knl_open_file(file, flags, mode, unit)
    character(len=*), intent(in) :: file
    integer(c_int), intent(in) :: flags, mode
    integer(c_int), intent(out) :: unit

    unit = knl_raw_openfile(terminated(file), flags, mode, 0_c_int, len_trim(file, c_int))
  end subroutine knl_open_file

  ! ---- Trace buffers and trace sets ----

  !> Whether one of the given flags of input channel `channel` is raised.
  subroutine knl_is_input_trace_buffer_flagged(channel, flag, flagged)
    integer(c_int), intent(in) :: channel, flag
    logical, intent(out) :: flagged
    integer(c_int) :: answer

    call knl_raw_isinputtracebufferflagged(channel, flag, answer)
    flagged = answer /= 0
  end subroutine knl_is_input_trace_buffer_flagged

  !> Whether traces of the set that have not been used for long may go to the scratch file. They may
  !> unless this says otherwise.
  subroutine knl_set_trace_buffer_use_scratch(set, use)
    type(c_ptr), intent(in) :: set
    logical, intent(in) :: use

    call knl_raw_settracebufferusescratch(set, merge(1_c_int, 0_c_int, use))
  end subroutine knl_set_trace_buffer_use_scratch

  !> Reads what knl_set_trace_buffer_use_scratch sets.
  subroutine knl_is_trace_buffer_use_scratch(set, use)
    type(c_ptr), intent(in) :: set
    logical, intent(out) :: use
    integer(c_int) :: answer

    call knl_raw_istracebufferusescratch(set, answer)
    use = answer /= 0
  end subroutine knl_is_trace_buffer_use_scratch

  !> Copies a trace of the set `from` to a trace of the set `to`: its attributes when `header`, its
  !> samples when `samples`, and always its flag, so that the end of data passes on. Traces are
  !> counted from 1 and are the first ones where not given; a trace that does not exist yet is made.
  !> `status`: 1 copied, 0 when one of the traces is null.
  subroutine knl_copy_trace_to_trace(from, to, header, samples, status, trace_from, trace_to)
    type(c_ptr), intent(in) :: from, to
    logical, intent(in) :: header, samples
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace_from, trace_to
    integer(c_int) :: copy_header, copy_samples

    copy_header = merge(1_c_int, 0_c_int, header)
    copy_samples = merge(1_c_int, 0_c_int, samples)
    if (present(trace_from) .or. present(trace_to)) then
      call knl_raw_mcopytracetotrace(from, to, copy_header, copy_samples, &
          given_or_first(trace_from), given_or_first(trace_to), status)
    else
      call knl_raw_scopytracetotrace(from, to, copy_header, copy_samples, status)
    end if
  end subroutine knl_copy_trace_to_trace

  !> Moves trace `trace_from` of the set `from` to trace `trace_to` of the set `to`, both counted
  !> from 1. The place where it was holds no trace afterwards, and what was at the new place is not
  !> released. The sets must have the same attributes in the same order. `status`: 1 moved, 0 when
  !> the trace does not exist. (Of the C form; the Fortran form has no such function.)
  subroutine knl_move_trace_to_trace(from, to, trace_from, trace_to, status)
    type(c_ptr), intent(in) :: from, to
    integer(c_int), intent(in) :: trace_from, trace_to
    integer(c_int), intent(out) :: status

    status = c_movetracetotrace(from, to, trace_from - 1, trace_to - 1)
  end subroutine knl_move_trace_to_trace

  !> Gives work set `work_set`, counted from 1, the trace length, the sample interval and the very
  !> header layout of the set `model`, so that traces can be moved between the two as they are.
  !> `status`: 0 done, 1 when the work set has attributes or traces already. (Of the C form; the
  !> Fortran form has no such function.)
  subroutine knl_bld_work_trace_buffer_like(work_set, model, status)
    integer(c_int), intent(in) :: work_set
    type(c_ptr), intent(in) :: model
    integer(c_int), intent(out) :: status

    status = c_bldworktracebufferlike(work_set - 1, model)
  end subroutine knl_bld_work_trace_buffer_like

  !> What knl_copy_trace_to_trace of header and samples gives, without copying where that is
  !> possible: the trace itself goes to the set `to`, its header is laid out as there, and its place
  !> in the set `from` holds no trace afterwards. It is copied where other modules have yet to take
  !> it from a shared input, and where the lengths differ. Traces are counted from 1. `status`: 1
  !> done, 0 when the trace or memory for its header is missing. (Of the C form; the Fortran
  !> form has no such function.)
  subroutine knl_transfer_trace_to_trace(from, to, trace_from, trace_to, status)
    type(c_ptr), intent(in) :: from, to
    integer(c_int), intent(in) :: trace_from, trace_to
    integer(c_int), intent(out) :: status

    status = c_transfertracetotrace(from, to, trace_from - 1, trace_to - 1)
  end subroutine knl_transfer_trace_to_trace

  !> Destroys a trace of a work buffer, counted from 1, or takes away the empty place of one that has
  !> been moved; later traces move down. `status`: 1 done, 0 when the place does not exist or the set
  !> is an input or an output. (Of the C form; the Fortran form has no such function.)
  subroutine knl_remove_trace(set, trace, status)
    type(c_ptr), intent(in) :: set
    integer(c_int), intent(in) :: trace
    integer(c_int), intent(out) :: status

    status = c_removetrace(set, trace - 1)
  end subroutine knl_remove_trace

  !> Destroys all traces of all work buffers of the running module; the buffers stay. To be called in
  !> `postprocess`: the job deletes the buffers and not their traces. (Of the C form; the Fortran
  !> form has no such function.)
  subroutine knl_remove_work_traces()
    integer(c_int) :: places

    places = c_removeworktraces()
  end subroutine knl_remove_work_traces

  !> Points `samples` at the samples of a trace: of trace `trace`, counted from 1, or of the first
  !> one when `trace` is not given. A trace that does not exist yet is made. These are the samples
  !> themselves; they may be changed. The pointer holds while the set is unchanged, at most until
  !> the entry point returns. `status`: 0, or 1 and a null pointer when there are no samples.
  !>
  !> The functions behind this name take a descriptor: not gfortran's own record of a pointer,
  !> which is 8 bytes too short for them. Do not call those directly with a pointer.
  subroutine knl_get_trace_samples(set, samples, status, trace)
    type(c_ptr), intent(in) :: set
    real(c_float), pointer, intent(out) :: samples(:)
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace
    type(array_descriptor) :: array

    array%data = c_null_ptr
    if (present(trace)) then
      call knl_raw_mgettracesamples(set, array, trace, status)
    else
      call knl_raw_sgettracesamples(set, array, status)
    end if
    nullify (samples)
    if (status == 0) call point_f32(array, samples)
  end subroutine knl_get_trace_samples

  subroutine set_samples(set, samples, status, trace)
    type(c_ptr), intent(in) :: set
    real(c_float), intent(in) :: samples(:)
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace
    real(c_float), pointer :: there(:)
    integer(c_int) :: length, istat

    length = 0
    call knl_get_trace_length(set, length, istat)
    status = 0
    if (size(samples) < length) return

    ! Not by the function behind this name: it copies as many samples as the trace has, which can
    ! be more than the set says and more than are here.
    call knl_get_trace_samples(set, there, istat, trace)
    if (istat /= 0) return
    there = samples(:size(there))
    status = 1
  end subroutine set_samples

  subroutine set_samples_from(set, samples, status, trace)
    type(c_ptr), intent(in) :: set, samples
    integer(c_int), intent(out) :: status
    integer(c_int), intent(in), optional :: trace

    if (present(trace)) then
      call knl_raw_msettracesamples(set, samples, trace, status)
    else
      call knl_raw_ssettracesamples(set, samples, status)
    end if
  end subroutine set_samples_from

  ! ---- Messages and commands ----

  !> Sends the host a message of at most 1023 characters; leading and trailing blanks are dropped.
  !> `type` is knl_message_information or another of the types above.
  subroutine knl_send_message(type, text)
    integer(c_int), intent(in) :: type
    character(len=*), intent(in) :: text

    call knl_raw_sendmessage(type, text, len_trim(text, c_int))
  end subroutine knl_send_message

  subroutine add_text_message_argument(value)
    character(len=*), intent(in) :: value

    call knl_raw_addstrmessageargument(value, len_trim(value, c_int))
  end subroutine add_text_message_argument

  !> Asks the host to run a command of another application.
  subroutine knl_exec_appli_cmd(command)
    character(len=*), intent(in) :: command

    call knl_raw_execapplicmd(command, len_trim(command, c_int))
  end subroutine knl_exec_appli_cmd

  ! ---- Pads ----

  !> Creates a pad, at first not visible, and says by which number it is known; -1 when the host
  !> has no pads.
  subroutine knl_create_pad(pad, type, align, title)
    integer(c_int), intent(out) :: pad
    integer(c_int), intent(in) :: type, align
    character(len=*), intent(in) :: title

    call knl_raw_createpad(pad, type, align, title, len_trim(title, c_int))
  end subroutine knl_create_pad

  !> Draws `characters` characters of `text`, or a special symbol.
  subroutine knl_symbol(pad, x, y, height, text, code, angle, characters)
    integer(c_int), intent(in) :: pad, code, characters
    real(c_float), intent(in) :: x, y, height, angle
    character(len=*), intent(in) :: text

    call knl_raw_symbol(pad, x, y, height, text, code, angle, characters, len_trim(text, c_int))
  end subroutine knl_symbol

  ! ---- The job that runs ----

  !> `cancelled`: 1 when the host has asked to cancel the job, else 0. A loop that takes long asks now
  !> and then, and ends early.
  subroutine knl_is_cancelled(cancelled)
    integer(c_int), intent(out) :: cancelled

    call knl_raw_iscancelled(cancelled)
  end subroutine knl_is_cancelled

  ! ---- Directories and date ----

  !> The date as day, month counted from 0 and years since 1900: 15.10.126 is 15 November 2026.
  subroutine knl_date(text)
    character(len=*), intent(inout) :: text

    call knl_raw_date(text, len(text, c_int))
  end subroutine knl_date

  !> The job's scratch directory.
  subroutine knl_get_scratch_dir(directory)
    character(len=*), intent(inout) :: directory

    call knl_raw_getscratchdir(directory, len(directory, c_int))
  end subroutine knl_get_scratch_dir

  !> The job's project directory. (Of the C form; the Fortran form has no such function.)
  subroutine knl_get_project_dir(directory)
    character(len=*), intent(out) :: directory
    character(kind=c_char), pointer :: text(:)
    type(c_ptr) :: address
    integer :: i

    directory = ' '
    address = c_getprojectdir()
    if (.not. c_associated(address)) return
    ! Never looked at beyond the NUL: the loop ends there.
    call c_f_pointer(address, text, [len(directory)])
    do i = 1, len(directory)
      if (text(i) == c_null_char) exit
      directory(i:i) = text(i)
    end do
  end subroutine knl_get_project_dir

  !> Sets the job's project directory, and with it the place of metadata files. (Of the C form; the
  !> Fortran form has no such function.)
  subroutine knl_set_project_dir(directory)
    character(len=*), intent(in) :: directory

    call c_setprojectdir(terminated(directory))
  end subroutine knl_set_project_dir

  ! ---- Metadata ----

  !> Sets a metadata value, unless the name already has one. `scope` is 0 for the job, 1 for the
  !> running module. Leading and trailing blanks of the value are dropped; name and value have at
  !> most 1023 characters. With `n`, only the first `n` characters of `value` are taken.
  subroutine knl_set_metadata_value(scope, name, value, n)
    integer(c_int), intent(in) :: scope
    character(len=*), intent(in) :: name, value
    integer(c_int), intent(in), optional :: n

    if (present(n)) then
      call knl_raw_setmetadatavaluen(scope, name, value, n, len_trim(name, c_int), &
          len(value, c_int))
    else
      call knl_raw_setmetadatavalue(scope, name, value, len_trim(name, c_int), &
          len_trim(value, c_int))
    end if
  end subroutine knl_set_metadata_value

  !> Reads a metadata value; in scope 1 that of the nearest module upstream which has one. `length`
  !> is the length of the whole value, which is cut when it is longer than `value`; 0 and blanks
  !> when there is none. (Of the C form; the Fortran form has no such function.)
  subroutine knl_get_metadata_value(scope, name, value, length)
    integer(c_int), intent(in) :: scope
    character(len=*), intent(in) :: name
    character(len=*), intent(out) :: value
    integer(c_int), intent(out) :: length
    character(len=len(value) + 1, kind=c_char) :: text

    length = c_getmetadatavalue(scope, c_text(name), text, len(text, c_int))
    value = text(:max(0, min(int(length), len(value))))
  end subroutine knl_get_metadata_value

  ! ---- Helpers ----

  ! A name as C reads it. As in the kernel, blanks around it do not count.
  pure function c_text(name) result(text)
    character(len=*), intent(in) :: name
    character(len=len_trim(adjustl(name)) + 1, kind=c_char) :: text

    text = trim(adjustl(name)) // c_null_char
  end function c_text

  ! A text as C reads it, with its leading blanks.
  pure function terminated(value) result(text)
    character(len=*), intent(in) :: value
    character(len=len_trim(value) + 1, kind=c_char) :: text

    text = trim(value) // c_null_char
  end function terminated

  pure function joined(characters) result(text)
    character(len=1, kind=c_char), intent(in) :: characters(:)
    character(len=size(characters), kind=c_char) :: text
    integer :: i

    do i = 1, size(characters)
      text(i:i) = characters(i)
    end do
  end function joined

  pure function first_line(text) result(line)
    character(len=*), intent(in) :: text
    character(len=:), allocatable :: line
    integer :: end_of_line

    end_of_line = scan(text, new_line(text))
    if (end_of_line == 0) end_of_line = len(text) + 1
    line = text(:end_of_line - 1)
  end function first_line

  pure subroutine split_lines(text, lines)
    character(len=*), intent(in) :: text
    character(len=:), allocatable, intent(inout) :: lines(:)
    integer :: count, longest, first, i
    character(len=:), allocatable :: line

    count = 0
    longest = 0
    first = 1
    do while (first <= len(text))
      line = first_line(text(first:))
      count = count + 1
      longest = max(longest, len(line))
      first = first + len(line) + 1
    end do
    if (len(text) > 0) then
      ! A newline at the end begins one more text, an empty one.
      if (text(len(text):) == new_line(text)) count = count + 1
    end if
    if (allocated(lines)) deallocate (lines)
    allocate (character(len=longest) :: lines(count))
    first = 1
    do i = 1, count
      line = first_line(text(min(first, len(text) + 1):))
      lines(i) = line
      first = first + len(line) + 1
    end do
  end subroutine split_lines

  pure function given_or_first(trace) result(number)
    integer(c_int), intent(in), optional :: trace
    integer(c_int) :: number

    number = 1
    if (present(trace)) number = trace
  end function given_or_first

  ! The address of the first element; none for an empty array and a null pointer.
  function address_of_i32(array) result(address)
    integer(c_int), pointer, intent(in) :: array(:)
    type(c_ptr) :: address

    address = c_null_ptr
    if (.not. associated(array)) return
    if (size(array) > 0) address = c_loc(array(1))
  end function address_of_i32

  function address_of_i64(array) result(address)
    integer(c_int64_t), pointer, intent(in) :: array(:)
    type(c_ptr) :: address

    address = c_null_ptr
    if (.not. associated(array)) return
    if (size(array) > 0) address = c_loc(array(1))
  end function address_of_i64

  function address_of_f32(array) result(address)
    real(c_float), pointer, intent(in) :: array(:)
    type(c_ptr) :: address

    address = c_null_ptr
    if (.not. associated(array)) return
    if (size(array) > 0) address = c_loc(array(1))
  end function address_of_f32

  function address_of_f64(array) result(address)
    real(c_double), pointer, intent(in) :: array(:)
    type(c_ptr) :: address

    address = c_null_ptr
    if (.not. associated(array)) return
    if (size(array) > 0) address = c_loc(array(1))
  end function address_of_f64

  function address_of_text(array) result(address)
    character(len=*), pointer, intent(in) :: array(:)
    type(c_ptr) :: address

    address = c_null_ptr
    if (.not. associated(array)) return
    if (size(array) > 0) address = c_loc(array(1)(1:1))
  end function address_of_text

  ! What a descriptor describes, as a pointer; null where it has no address.
  subroutine point_i32(array, elements)
    type(array_descriptor), intent(in) :: array
    integer(c_int), pointer, intent(inout) :: elements(:)

    nullify (elements)
    if (c_associated(array%data)) call c_f_pointer(array%data, elements, [array%extent])
  end subroutine point_i32

  subroutine point_i64(array, elements)
    type(array_descriptor), intent(in) :: array
    integer(c_int64_t), pointer, intent(inout) :: elements(:)

    nullify (elements)
    if (c_associated(array%data)) call c_f_pointer(array%data, elements, [array%extent])
  end subroutine point_i64

  subroutine point_f32(array, elements)
    type(array_descriptor), intent(in) :: array
    real(c_float), pointer, intent(inout) :: elements(:)

    nullify (elements)
    if (c_associated(array%data)) call c_f_pointer(array%data, elements, [array%extent])
  end subroutine point_f32

  subroutine point_f64(array, elements)
    type(array_descriptor), intent(in) :: array
    real(c_double), pointer, intent(inout) :: elements(:)

    nullify (elements)
    if (c_associated(array%data)) call c_f_pointer(array%data, elements, [array%extent])
  end subroutine point_f64

  subroutine point_text(array, texts)
    type(array_descriptor), intent(in) :: array
    character(len=*), pointer, intent(inout) :: texts(:)
    character(kind=c_char), pointer :: characters(:)

    nullify (texts)
    if (.not. c_associated(array%data)) return
    call c_f_pointer(array%data, characters, [array%extent * len(texts)])
    call fold(characters, len(texts), int(array%extent), texts)
  end subroutine point_text

  ! Texts of fixed length in a row of characters. (c_f_pointer makes texts of length 1 only.)
  subroutine fold(characters, width, count, texts)
    integer, intent(in) :: width, count
    character(len=width), target, intent(in) :: characters(count)
    character(len=*), pointer, intent(inout) :: texts(:)

    texts => characters
  end subroutine fold
end module vorn_knl
