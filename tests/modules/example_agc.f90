! The example as its authors find it, for the tests.
include '../../examples/module-fortran/agc_gain.f90'
include '../../examples/module-fortran/agc.f90'
