! Tells every parameter that it was given, as "name=value", and fails where it is told to.
module kit_fortran_job
  use, intrinsic :: iso_c_binding, only: c_double, c_int, c_int64_t, c_ptr
  use kit_fortran_parameters
  use vorn_kit
  use vorn_knl
  implicit none
  private

  type, extends(vorn_module), public :: kit_state
    type(parameters) :: set
    integer(c_int) :: traces = 0
  contains
    procedure :: prepare
    procedure :: process
    procedure :: finish
  end type kit_state

contains

  subroutine tell(text)
    character(len=*), intent(in) :: text

    call knl_send_message(knl_message_information, text)
  end subroutine tell

  subroutine tell_text(name, text)
    character(len=*), intent(in) :: name, text

    if (len(text) > 100) then
      call tell(name // ' has ' // vorn_to_text(len(text, kind=c_int)) // ' bytes, the last is ' // &
          text(len(text):))
    else
      call tell(name // '=' // text)
    end if
  end subroutine tell_text

  pure function digit_of(value) result(digit)
    logical, intent(in) :: value
    character(len=1) :: digit

    digit = merge('1', '0', value)
  end function digit_of

  subroutine tell_scalars(p)
    type(parameters), intent(in) :: p

    call tell('real=' // vorn_to_text(p%real))
    call tell('free=' // vorn_to_text(p%free))
    if (allocated(p%absent_real)) call tell('absent_real=' // vorn_to_text(p%absent_real))
    if (.not. allocated(p%absent_real)) call tell('absent_real absent')
    call tell('count=' // vorn_to_text(p%count))
    call tell('wide=' // vorn_to_text(p%wide))
    if (allocated(p%absent_count)) call tell('absent_count=' // vorn_to_text(p%absent_count))
    if (.not. allocated(p%absent_count)) call tell('absent_count absent')
    call tell('flag=' // digit_of(p%flag))
    if (allocated(p%absent_flag)) call tell('absent_flag=' // digit_of(p%absent_flag))
    if (.not. allocated(p%absent_flag)) call tell('absent_flag absent')
    call tell_text('word', p%word)
    if (allocated(p%absent_word)) call tell('absent_word=' // p%absent_word)
    if (.not. allocated(p%absent_word)) call tell('absent_word absent')
    call tell('mode=' // vorn_to_text(merge(2_c_int, p%mode, p%mode == mode_black_white)))
    call tell('called=' // mode_word(p%mode))
    if (allocated(p%absent_mode)) call tell('absent_mode=' // vorn_to_text(p%absent_mode))
    if (.not. allocated(p%absent_mode)) call tell('absent_mode absent')
  end subroutine tell_scalars

  subroutine tell_lists(p)
    type(parameters), intent(in) :: p
    integer :: i

    call tell('reals=' // vorn_to_text(size(p%reals, kind=c_int)))
    call tell('sum=' // vorn_to_text(sum(p%reals)))
    call tell('ints=' // vorn_to_text(size(p%ints, kind=c_int)))
    if (size(p%ints) > 0) call tell('last int=' // vorn_to_text(p%ints(size(p%ints))))
    if (size(p%ints) == 0) call tell('last int absent')
    do i = 1, size(p%wides)
      call tell('wides=' // vorn_to_text(p%wides(i)))
    end do
    call tell('four=' // vorn_to_text(p%four(4)))
    do i = 1, size(p%words)
      call tell_text('words', p%words(i)%text)
    end do
    do i = 1, size(p%picks)
      call tell_text('picks', p%picks(i)%text)
    end do
  end subroutine tell_lists

  subroutine tell_others(p)
    type(parameters), intent(in) :: p

    if (allocated(p%infile)) call tell('infile=' // p%infile)
    if (.not. allocated(p%infile)) call tell('infile absent')
    call tell('needed=' // vorn_to_text(p%needed))
    call tell('hard names=' // vorn_to_text(p%default + p%class + p%operator + p%end + p%if + &
        p%linux + p%null + p%p_leading + p%case + p%case_ + p%has_absent_real + p%reals_count + &
        p%memory + p%parameters + p%mode_ + &
        p%a_name_of_more_than_sixty_three_characters_which_is_what_fortra + &
        p%a_name_of_more_than_sixty_three_characters_which_is_what_fort_1))
  end subroutine tell_others

  ! The numbers that have names, one after the other.
  subroutine tell_numbers
    integer(c_int), parameter :: numbers(*) = [ &
        knl_message_detail, knl_message_information, knl_message_warning, &
        knl_message_error, knl_message_fatal, knl_scope_job, &
        knl_scope_module, knl_end_of_data, knl_keep_trace, &
        vorn_type_text, vorn_type_int32, vorn_type_int64, &
        vorn_type_float32, vorn_type_float64, vorn_type_text32, &
        vorn_type_text64, vorn_pad_section, vorn_pad_graph, &
        vorn_pad_section_and_graph, vorn_draw, vorn_move]
    character(len=:), allocatable :: text
    integer :: i

    text = 'numbers:'
    do i = 1, size(numbers)
      text = text // ' ' // vorn_to_text(numbers(i))
    end do
    call knl_send_message(knl_message_detail, text)
  end subroutine tell_numbers

  subroutine prepare(state, good)
    class(kit_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input

    call vorn_required_input(input, good)
    if (good) call vorn_build_required_output(input, good)
    if (good) call read_parameters(state%set, good)
    if (.not. good) return
    call tell_scalars(state%set)
    call tell_lists(state%set)
    call tell_others(state%set)
    call tell_numbers
    good = state%set%fails /= fails_prepare
    if (.not. good) call vorn_fail('told to fail in prepare')
  end subroutine prepare

  subroutine process(state, good)
    class(kit_state), intent(inout) :: state
    logical, intent(inout) :: good
    type(c_ptr) :: input, output
    integer(c_int) :: number, status

    call knl_get_input_trace_buffer(input, 1, status)
    call knl_get_output_trace_buffer(output, 1, status)
    call vorn_pass_trace(input, output, number)
    state%traces = state%traces + 1
    if (state%traces < 2) return
    good = state%set%fails /= fails_process .and. state%set%fails /= fails_unknown
    if (state%set%fails == fails_process) call vorn_fail('told to fail in process')
    if (state%set%fails == fails_unknown) call vorn_fail('an unknown exception was thrown')
  end subroutine process

  subroutine finish(state)
    class(kit_state), intent(inout) :: state

    if (state%set%fails == fails_finish) then
      call vorn_fail('told to fail in finish')
    else
      call tell('traces=' // vorn_to_text(state%traces))
    end if
  end subroutine finish
end module kit_fortran_job

subroutine vorn_new_module(state)
  use kit_fortran_job, only: kit_state
  use vorn_kit, only: vorn_module
  implicit none
  class(vorn_module), pointer, intent(out) :: state

  allocate (kit_state :: state)
end subroutine vorn_new_module
