C     my_module: counts traces and finds the largest sample.
C
C     Handles of trace sets are INTEGER*8. What the module keeps from one
C     call to the next is a resource: a common block would be shared by
C     all modules of a job that use this library. It keeps the number of
C     traces, the largest sample and the limit.
C     ------------------------------------------------------------------
C     Before the first trace.
      INTEGER FUNCTION PREPROCESS()
      INTEGER*8 INTRC
      INTEGER ISTAT
      REAL KEPT(3)

      PREPROCESS = 0
      CALL KNL_GETINPUTTRACEBUFFER(INTRC, 1, ISTAT)
      IF (ISTAT .NE. 0) THEN
        CALL KNL_SENDMESSAGE(4, 'the module has no input; connect one')
        RETURN
      END IF
C     An absent parameter leaves the variable alone.
      KEPT(1) = 0.0
      KEPT(2) = 0.0
      KEPT(3) = 1000.0
      CALL KNL_GETF32MODULEPARAMETER('limit', KEPT(3), ISTAT)
      CALL KNL_SETMODULESTRUCTRESOURCE('KEPT', KEPT, 12, ISTAT)
      END
C     ------------------------------------------------------------------
C     For each trace.
      INTEGER FUNCTION PROCESS()
      INTEGER*8 INTRC
C     The kernel's record of an array: nine words. The first one is the
C     address of the elements, the seventh says how many there are.
      INTEGER*8 IDESC(9)
      INTEGER ISTAT
      REAL KEPT(3)
      EXTERNAL LARGST

      PROCESS = 0
      CALL KNL_GETMODULESTRUCTRESOURCE('KEPT', KEPT, ISTAT)
      IF (ISTAT .NE. 1) RETURN
      CALL KNL_GETINPUTTRACEBUFFER(INTRC, 1, ISTAT)
      CALL KNL_SGETTRACESAMPLES(INTRC, IDESC, ISTAT)
      IF (ISTAT .NE. 0) RETURN
      KEPT(1) = KEPT(1) + 1.0
      CALL APPLY(LARGST, IDESC, KEPT(2))
      CALL KNL_SETMODULESTRUCTRESOURCE('KEPT', KEPT, 12, ISTAT)
      END
C     ------------------------------------------------------------------
C     When all modules have ended.
      INTEGER FUNCTION POSTPROCESS()
      INTEGER ISTAT
      REAL KEPT(3)
      CHARACTER*80 TEXT

      POSTPROCESS = 0
      CALL KNL_GETMODULESTRUCTRESOURCE('KEPT', KEPT, ISTAT)
      IF (ISTAT .NE. 1) RETURN
      WRITE (TEXT, 20) NINT(KEPT(1)), KEPT(2)
20    FORMAT (I0, ' traces, largest sample ', F0.4)
      CALL KNL_SENDMESSAGE(1, TEXT)
      IF (KEPT(2) .GT. KEPT(3)) CALL KNL_SENDMESSAGE(2,
     &  'the largest sample is above the limit')
      END
C     ------------------------------------------------------------------
C     Calls WORK with the samples: their address, passed by value, is an
C     array to the one who is called. WORK is an argument so that the
C     compiler does not compare the two types.
      SUBROUTINE APPLY(WORK, IDESC, VALUE)
      EXTERNAL WORK
      INTEGER*8 IDESC(9)
      REAL VALUE

      CALL WORK(%VAL(IDESC(1)), INT(IDESC(7)), VALUE)
      END
C     ------------------------------------------------------------------
      SUBROUTINE LARGST(X, N, VALUE)
      INTEGER N, I
      REAL X(N), VALUE

      DO 10 I = 1, N
        VALUE = MAX(VALUE, ABS(X(I)))
10    CONTINUE
      END
