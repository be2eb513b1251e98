C     my_module: subtracts the traces of its second input from those of
C     the first.
C
C     Handles of trace sets are INTEGER*8. What the module keeps from one
C     call to the next is a resource: a common block would be shared by
C     all modules of a job that use this library. It keeps the factor,
C     and whether work buffer 1 holds a trace: one is held back, since
C     the last one has to carry the flag of the end.
C     ------------------------------------------------------------------
C     Before the first trace.
      INTEGER FUNCTION PREPROCESS()
      INTEGER*8 INTRC, SECOND
      INTEGER NSAMP, INTRVL, ISTAT
      REAL KEPT(2)

      PREPROCESS = 0
      CALL KNL_GETINPUTTRACEBUFFER(SECOND, 2, ISTAT)
      IF (ISTAT .EQ. 0) CALL KNL_GETINPUTTRACEBUFFER(INTRC, 1, ISTAT)
      IF (ISTAT .NE. 0) THEN
        CALL KNL_SENDMESSAGE(4,
     &    'the module needs two inputs; connect them')
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
      CALL KNL_BLDWORKTRACEBUFFER(1, NSAMP, INTRVL, 0, INTRC, ISTAT)
C     An absent parameter leaves the variable alone.
      KEPT(1) = 1.0
      KEPT(2) = 0.0
      CALL KNL_GETF32MODULEPARAMETER('scale', KEPT(1), ISTAT)
      CALL KNL_SETMODULESTRUCTRESOURCE('KEPT', KEPT, 8, ISTAT)
C     A call without input follows the last traces.
      CALL KNL_SETMODULEPROCESSINGOPTION('RespectEOD' // CHAR(0), 1)
      END
C     ------------------------------------------------------------------
C     For each pair of traces. An input that has ended has none.
      INTEGER FUNCTION PROCESS()
      INTEGER*8 INTRC, SECOND, OUTTRC, HELD
C     The kernel's record of an array: nine words. The first one is the
C     address of the elements, the seventh says how many there are.
      INTEGER*8 IDESC(9), ISUBTR(9)
      INTEGER N1, N2, ISTAT
      REAL KEPT(2)
      EXTERNAL ADD

      PROCESS = 0
      CALL KNL_GETOUTPUTTRACEBUFFER(OUTTRC, 1, ISTAT)
      IF (ISTAT .NE. 0) RETURN
      CALL KNL_GETMODULESTRUCTRESOURCE('KEPT', KEPT, ISTAT)
      IF (ISTAT .NE. 1) THEN
C       PREPROCESS has failed: end of data, do not ask again.
        CALL KNL_SETDATACHANNELFLAG(OUTTRC, 3)
        RETURN
      END IF
      CALL KNL_GETWORKTRACEBUFFER(HELD, 1, ISTAT)
      IF (KEPT(2) .GT. 0.0) THEN
C       Behind what the next module has not read yet.
        CALL KNL_GETNUMBEROFTRACES(OUTTRC, N1, ISTAT)
        CALL KNL_MCOPYTRACETOTRACE(HELD, OUTTRC, 1, 1, 1, N1 + 1,
     &      ISTAT)
        KEPT(2) = 0.0
      END IF

      CALL KNL_GETINPUTTRACEBUFFER(INTRC, 1, ISTAT)
      CALL KNL_GETINPUTTRACEBUFFER(SECOND, 2, ISTAT)
      CALL KNL_GETNUMBEROFTRACES(INTRC, N1, ISTAT)
      CALL KNL_GETNUMBEROFTRACES(SECOND, N2, ISTAT)
C     Nothing is to be taken from an empty input.
      IF (N1 .EQ. 0) CALL KNL_SETINPUTTRACEBUFFERFLAG(1, 1)
      IF (N2 .EQ. 0) CALL KNL_SETINPUTTRACEBUFFERFLAG(2, 1)
      IF (MIN(N1, N2) .EQ. 0 .AND. MAX(N1, N2) .GT. 0) THEN
        CALL KNL_SENDMESSAGE(4,
     &    'one input has more traces than the other')
        CALL KNL_SETMODULEPROCESSINGOPTION('RespectEOD' // CHAR(0), 0)
      END IF
      IF (MIN(N1, N2) .EQ. 0) THEN
C       The end. There may be several such calls: each sets the flag.
        CALL KNL_SETDATACHANNELFLAG(OUTTRC, 3)
        CALL KNL_SETMODULESTRUCTRESOURCE('KEPT', KEPT, 8, ISTAT)
        RETURN
      END IF

      CALL KNL_SCOPYTRACETOTRACE(INTRC, HELD, 1, 1, ISTAT)
C     The flag of the last trace of the input was copied, too.
      CALL KNL_SETDATACHANNELFLAG(HELD, 0)
      KEPT(2) = 1.0
      CALL KNL_SGETTRACESAMPLES(HELD, IDESC, ISTAT)
      IF (ISTAT .EQ. 0) CALL KNL_SGETTRACESAMPLES(SECOND, ISUBTR, ISTAT)
      IF (ISTAT .EQ. 0) CALL APPLY(ADD, ISUBTR, IDESC, -KEPT(1))
      CALL KNL_SETMODULESTRUCTRESOURCE('KEPT', KEPT, 8, ISTAT)
      END
C     ------------------------------------------------------------------
C     When all modules have ended: the traces of work buffers belong to
C     the module. This function has no form without an interface.
      INTEGER FUNCTION POSTPROCESS()
      USE VORN_KNL, ONLY: KNL_REMOVE_WORK_TRACES

      CALL KNL_REMOVE_WORK_TRACES()
      POSTPROCESS = 0
      END
C     ------------------------------------------------------------------
C     Calls WORK with the samples of two traces: their addresses, passed
C     by value, are arrays to the one who is called. WORK is an argument
C     so that the compiler does not compare the two types.
      SUBROUTINE APPLY(WORK, IFROM, ITO, FACTOR)
      EXTERNAL WORK
      INTEGER*8 IFROM(9), ITO(9)
      REAL FACTOR

      CALL WORK(%VAL(IFROM(1)), %VAL(ITO(1)),
     &    INT(MIN(IFROM(7), ITO(7))), FACTOR)
      END
C     ------------------------------------------------------------------
C     The arithmetic, which knows nothing of the kernel.
      SUBROUTINE ADD(X, Y, N, FACTOR)
      INTEGER N, I
      REAL X(N), Y(N), FACTOR

      DO 10 I = 1, N
        Y(I) = Y(I) + FACTOR * X(I)
10    CONTINUE
      END
