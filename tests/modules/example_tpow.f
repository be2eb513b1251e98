C     The example as its authors find it, for the tests.
      INCLUDE '../../examples/module-fortran77/tpow.f'
