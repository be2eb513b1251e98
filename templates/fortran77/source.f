C     my_module: makes traces, each with a spike in the middle.
C
C     Handles of trace sets are INTEGER*8. What the module keeps from one
C     call to the next is a resource: a common block would be shared by
C     all modules of a job that use this library. It keeps the number of
C     traces to make and the number of those made.
C     ------------------------------------------------------------------
C     Before the first trace.
      INTEGER FUNCTION PREPROCESS()
      INTEGER*8 OUTTRC
      INTEGER NSAMP, ISTAT, KEPT(2)
      REAL DT

      PREPROCESS = 0
C     An absent parameter leaves the variable alone.
      KEPT(1) = 4
      KEPT(2) = 0
      NSAMP = 25
      DT = 0.004
      CALL KNL_GETI32MODULEPARAMETER('traces', KEPT(1), ISTAT)
      CALL KNL_GETI32MODULEPARAMETER('samples', NSAMP, ISTAT)
      CALL KNL_GETF32MODULEPARAMETER('interval', DT, ISTAT)
      CALL KNL_GETOUTPUTTRACEBUFFER(OUTTRC, 1, ISTAT)
      IF (ISTAT .NE. 0) THEN
        CALL KNL_SENDMESSAGE(4,
     &    'the module has no output; connect one')
        RETURN
      END IF
      CALL KNL_SETTRACELENGTH(OUTTRC, NSAMP, ISTAT)
      CALL KNL_SETTRACESAMPLEINTERVAL(OUTTRC, NINT(1.0E6 * DT), ISTAT)
C     Header words that the traces have: of the type that the job's
C     schema gives them.
      CALL KNL_DEFINETRACEATTRIBUTE(OUTTRC, 'tracl', ISTAT)
      CALL KNL_DEFINETRACEATTRIBUTE(OUTTRC, 'fldr', ISTAT)
      CALL KNL_INFORMTOTALTRACESNUMBER(OUTTRC, KEPT(1))
      CALL KNL_SETMODULESTRUCTRESOURCE('COUNTS', KEPT, 8, ISTAT)
      END
C     ------------------------------------------------------------------
C     One trace in each call. The last one has the flag 3.
      INTEGER FUNCTION PROCESS()
      INTEGER*8 OUTTRC
C     The kernel's record of an array: nine words. The first one is the
C     address of the elements, the seventh says how many there are.
      INTEGER*8 IDESC(9)
      INTEGER ISTAT, KEPT(2)
      EXTERNAL SPIKE

      PROCESS = 0
      CALL KNL_GETOUTPUTTRACEBUFFER(OUTTRC, 1, ISTAT)
      IF (ISTAT .NE. 0) RETURN
      CALL KNL_GETMODULESTRUCTRESOURCE('COUNTS', KEPT, ISTAT)
      IF (ISTAT .NE. 1) THEN
        CALL KNL_SETDATACHANNELFLAG(OUTTRC, 3)
        RETURN
      END IF
      KEPT(2) = KEPT(2) + 1
C     Asking for the samples makes the trace.
      CALL KNL_SGETTRACESAMPLES(OUTTRC, IDESC, ISTAT)
      IF (ISTAT .EQ. 0) CALL APPLY(SPIKE, IDESC, REAL(KEPT(2)))
      CALL KNL_SETI32TRACEATTRIBUTE(OUTTRC, 'tracl', KEPT(2), ISTAT)
      CALL KNL_SETI32TRACEATTRIBUTE(OUTTRC, 'fldr', 1, ISTAT)
      IF (KEPT(2) .EQ. KEPT(1)) CALL KNL_SETDATACHANNELFLAG(OUTTRC, 3)
      CALL KNL_SETMODULESTRUCTRESOURCE('COUNTS', KEPT, 8, ISTAT)
      END
C     ------------------------------------------------------------------
      INTEGER FUNCTION POSTPROCESS()

      POSTPROCESS = 0
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
      SUBROUTINE SPIKE(X, N, VALUE)
      INTEGER N, I
      REAL X(N), VALUE

      DO 10 I = 1, N
        X(I) = 0.0
10    CONTINUE
      X(N / 2 + 1) = VALUE
      END
