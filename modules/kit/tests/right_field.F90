#ifndef FIELD
#define FIELD count
#endif
integer function got(set)
  use kit_fortran_parameters, only: parameters
  implicit none
  type(parameters), intent(in) :: set

  got = set%FIELD
end function got
