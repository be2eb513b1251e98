C     my_module: multiplies the samples of every trace by a factor.
C
C     Handles of trace sets are INTEGER*8. What the module keeps from one
C     call to the next is a resource: a common block would be shared by
C     all modules of a job that use this library.
C     ------------------------------------------------------------------
C     Before the first trace.
      INTEGER FUNCTION PREPROCESS()
      INTEGER*8 INTRC
      INTEGER NSAMP, INTRVL, ISTAT
      REAL FACTOR

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
C     An absent parameter leaves the variable alone.
      FACTOR = 2.0
      CALL KNL_GETF32MODULEPARAMETER('factor', FACTOR, ISTAT)
      CALL KNL_SETMODULESTRUCTRESOURCE('SETTINGS', FACTOR, 4, ISTAT)
      END
C     ------------------------------------------------------------------
C     For each trace.
      INTEGER FUNCTION PROCESS()
      INTEGER*8 INTRC, OUTTRC
C     The kernel's record of an array: nine words. The first one is the
C     address of the elements, the seventh says how many there are.
      INTEGER*8 IDESC(9)
      INTEGER ISTAT
      REAL FACTOR
      EXTERNAL SCALE

      PROCESS = 0
      CALL KNL_GETOUTPUTTRACEBUFFER(OUTTRC, 1, ISTAT)
      IF (ISTAT .NE. 0) RETURN
      CALL KNL_GETMODULESTRUCTRESOURCE('SETTINGS', FACTOR, ISTAT)
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
      IF (ISTAT .EQ. 0) CALL APPLY(SCALE, IDESC, FACTOR)
      END
C     ------------------------------------------------------------------
      INTEGER FUNCTION POSTPROCESS()

      POSTPROCESS = 0
      END
C     ------------------------------------------------------------------
C     Calls WORK with the samples: their address, passed by value, is an
C     array to the one who is called. WORK is an argument so that the
C     compiler does not compare the two types.
      SUBROUTINE APPLY(WORK, IDESC, FACTOR)
      EXTERNAL WORK
      INTEGER*8 IDESC(9)
      REAL FACTOR

      CALL WORK(%VAL(IDESC(1)), INT(IDESC(7)), FACTOR)
      END
C     ------------------------------------------------------------------
C     The arithmetic, which knows nothing of the kernel.
      SUBROUTINE SCALE(X, N, FACTOR)
      INTEGER N, I
      REAL X(N), FACTOR

      DO 10 I = 1, N
        X(I) = FACTOR * X(I)
10    CONTINUE
      END
