C     tpow: multiplies the samples of every trace by their time raised to
C     the power. Old-style Fortran: fixed form and implicit interfaces.
C
C     Handles of trace sets are INTEGER*8. What the module keeps from one
C     call to the next is a resource: a common block would be shared by
C     all modules of a job that use this library.
C     ------------------------------------------------------------------
      INTEGER FUNCTION PREPROCESS()
      INTEGER*8 INTRC
      INTEGER NSAMP, INTRVL, ISTAT
      REAL SETTNG(2)
      CHARACTER*80 TEXT

      PREPROCESS = 0
      CALL KNL_GETINPUTTRACEBUFFER(INTRC, 1, ISTAT)
      IF (ISTAT .NE. 0) THEN
        CALL KNL_SENDMESSAGE(4, 'the module has no input; connect one')
        RETURN
      END IF
C     The modules before this one have described their outputs by now.
      CALL KNL_GETTRACELENGTH(INTRC, NSAMP, ISTAT)
      CALL KNL_GETTRACESAMPLEINTERVAL(INTRC, INTRVL, ISTAT)
      CALL KNL_BLDOUTPUTTRACEBUFFER(1, NSAMP, INTRVL, INTRC, ISTAT)
      IF (ISTAT .NE. 0) THEN
        CALL KNL_SENDMESSAGE(4,
     &    'the module has no output; connect one')
        RETURN
      END IF

C     An absent parameter leaves the variable alone. ISTAT is 1 when it
C     is there, 0 when not.
      SETTNG(1) = 2.0
      CALL KNL_GETF32MODULEPARAMETER('power', SETTNG(1), ISTAT)
      IF (.NOT. SETTNG(1) .GE. 0.0) THEN
        WRITE (TEXT, 20) SETTNG(1)
20      FORMAT ('power is ', 1PG12.5, '; give a number of 0 or above')
        CALL KNL_SENDMESSAGE(4, TEXT)
        RETURN
      END IF
      SETTNG(2) = 1.0E-6 * REAL(INTRVL)
      CALL KNL_SETMODULESTRUCTRESOURCE('SETTINGS', SETTNG, 8, ISTAT)
      END
C     ------------------------------------------------------------------
C     One trace in, one trace out.
      INTEGER FUNCTION PROCESS()
      INTEGER*8 INTRC, OUTTRC
C     The kernel's record of an array: nine words. The first one is the
C     address of the elements, the seventh says how many there are.
      INTEGER*8 IDESC(9)
      INTEGER ISTAT
      REAL SETTNG(2)
      EXTERNAL TPOW

      PROCESS = 0
      CALL KNL_GETOUTPUTTRACEBUFFER(OUTTRC, 1, ISTAT)
      IF (ISTAT .NE. 0) RETURN
      CALL KNL_GETMODULESTRUCTRESOURCE('SETTINGS', SETTNG, ISTAT)
      IF (ISTAT .NE. 1) THEN
C       PREPROCESS has failed: end of data, do not ask again.
        CALL KNL_SETDATACHANNELFLAG(OUTTRC, 3)
        RETURN
      END IF
      CALL KNL_GETINPUTTRACEBUFFER(INTRC, 1, ISTAT)
C     Header, samples, and the flag that says whether this is the last
C     trace.
      CALL KNL_SCOPYTRACETOTRACE(INTRC, OUTTRC, 1, 1, ISTAT)
      CALL KNL_SGETTRACESAMPLES(OUTTRC, IDESC, ISTAT)
      IF (ISTAT .EQ. 0) CALL APPLY(TPOW, IDESC, SETTNG)
      END
C     ------------------------------------------------------------------
      INTEGER FUNCTION POSTPROCESS()

      POSTPROCESS = 0
      END
C     ------------------------------------------------------------------
C     Calls WORK with the samples: their address, passed by value, is an
C     array to the one who is called. WORK is an argument so that the
C     compiler does not compare the two types.
      SUBROUTINE APPLY(WORK, IDESC, SETTNG)
      EXTERNAL WORK
      INTEGER*8 IDESC(9)
      REAL SETTNG(2)

      CALL WORK(%VAL(IDESC(1)), INT(IDESC(7)), SETTNG(1), SETTNG(2))
      END
C     ------------------------------------------------------------------
C     The arithmetic, which knows nothing of the kernel: X(1) is at time
C     0, and the others follow each DT seconds.
      SUBROUTINE TPOW(X, N, POWER, DT)
      INTEGER N, I
      REAL X(N), POWER, DT

      DO 10 I = 1, N
        X(I) = X(I) * (REAL(I - 1) * DT)**POWER
10    CONTINUE
      END
