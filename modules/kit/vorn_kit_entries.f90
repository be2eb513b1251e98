! The entry points of Fortran modules that define `vorn_new_module` in their place: it allocates the
! module's state, the one thing in which entry points differ.
!
! vorn_add_module compiles this file once per project. The linker takes it from the library only for
! a module without a `preprocess` of its own.
integer function preprocess()
  use vorn_kit, only: vorn_module, vorn_preprocess
  implicit none
  class(vorn_module), pointer :: state
  interface
    subroutine vorn_new_module(state)
      import :: vorn_module
      class(vorn_module), pointer, intent(out) :: state
    end subroutine vorn_new_module
  end interface

  call vorn_new_module(state)
  preprocess = vorn_preprocess(state)
end function preprocess

integer function process()
  use vorn_kit, only: vorn_process
  implicit none

  process = vorn_process()
end function process

integer function postprocess()
  use vorn_kit, only: vorn_postprocess
  implicit none

  postprocess = vorn_postprocess()
end function postprocess

! Of jobs in parts. The path has its length by value, as C passes it.
integer(c_int) function vorn_save_entry(path, length) bind(C, name='save_')
  use, intrinsic :: iso_c_binding, only: c_char, c_int
  use vorn_kit, only: vorn_save
  implicit none
  integer(c_int), intent(in), value :: length
  character(kind=c_char), intent(in) :: path(length)
  character(len=length) :: text

  text = transfer(path, text)
  vorn_save_entry = vorn_save(text)
end function vorn_save_entry

integer(c_int) function vorn_merge_entry(path, length) bind(C, name='merge_')
  use, intrinsic :: iso_c_binding, only: c_char, c_int
  use vorn_kit, only: vorn_merge
  implicit none
  integer(c_int), intent(in), value :: length
  character(kind=c_char), intent(in) :: path(length)
  character(len=length) :: text

  text = transfer(path, text)
  vorn_merge_entry = vorn_merge(text)
end function vorn_merge_entry
