C     my_module: subtracts the mean trace of each gather from its traces.
C
C     Handles of trace sets are INTEGER*8. What the module keeps from one
C     call to the next is a resource: a common block would be shared by
C     all modules of a job that use this library. It keeps a list of the
C     key word, the traces of the current gather, and their value of the
C     key word. Work buffer 1 holds the traces, work buffer 2 their mean.
C     ------------------------------------------------------------------
C     Before the first trace.
      INTEGER FUNCTION PREPROCESS()
      INTEGER*8 INTRC, KEPT(3)
      INTEGER NSAMP, INTRVL, ISTAT
      CHARACTER*64 KEY

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
      CALL KNL_BLDWORKTRACEBUFFER(1, NSAMP, INTRVL, 0, INTRC, ISTAT)
      CALL KNL_BLDWORKTRACEBUFFER(2, NSAMP, INTRVL, 0, INTRC, ISTAT)
C     An absent parameter leaves the variable alone.
      KEY = 'fldr'
      CALL KNL_GETSTRMODULEPARAMETER('key', KEY, ISTAT)
      CALL KNL_BLDATTRIBUTELIST(KEY, 1, KEPT(1), ISTAT)
      KEPT(2) = 0
      KEPT(3) = 0
      CALL KNL_SETMODULESTRUCTRESOURCE('KEPT', KEPT, 24, ISTAT)
C     A call without input follows the last trace: the last gather
C     leaves then.
      CALL KNL_SETMODULEPROCESSINGOPTION('RespectEOD' // CHAR(0), 1)
      END
C     ------------------------------------------------------------------
C     For each trace: the gather ends where the key word changes.
      INTEGER FUNCTION PROCESS()
      INTEGER*8 INTRC, OUTTRC, GATHER, KEPT(3)
      INTEGER N, KEY, ISTAT
      CHARACTER*64 WORD

      PROCESS = 0
      CALL KNL_GETOUTPUTTRACEBUFFER(OUTTRC, 1, ISTAT)
      IF (ISTAT .NE. 0) RETURN
      CALL KNL_GETMODULESTRUCTRESOURCE('KEPT', KEPT, ISTAT)
      IF (ISTAT .NE. 1) THEN
C       PREPROCESS has failed: end of data, do not ask again.
        CALL KNL_SETDATACHANNELFLAG(OUTTRC, 3)
        RETURN
      END IF
      CALL KNL_GETINPUTTRACEBUFFER(INTRC, 1, ISTAT)
      CALL KNL_GETNUMBEROFTRACES(INTRC, N, ISTAT)
      IF (N .EQ. 0) THEN
C       The end, also when there was no trace. There may be several such
C       calls: each sets the flag again.
        CALL GIVE(OUTTRC, KEPT)
        CALL KNL_SETDATACHANNELFLAG(OUTTRC, 3)
        CALL KNL_SETMODULESTRUCTRESOURCE('KEPT', KEPT, 24, ISTAT)
C       Nothing is to be taken from the empty input.
        CALL KNL_SETINPUTTRACEBUFFERFLAG(1, 1)
        RETURN
      END IF

      CALL KNL_GETI32TRACEATTRIBUTES(KEPT(1), INTRC, 1, KEY, 1, N)
      IF (N .EQ. 0) THEN
        WORD = 'fldr'
        CALL KNL_GETSTRMODULEPARAMETER('key', WORD, ISTAT)
        CALL KNL_SENDMESSAGE(4,
     &    'the traces have no header word ' // WORD)
        CALL KNL_SETMODULEPROCESSINGOPTION('RespectEOD' // CHAR(0), 0)
        CALL KNL_SETDATACHANNELFLAG(OUTTRC, 3)
        RETURN
      END IF
      IF (KEPT(3) .NE. INT(KEY, 8)) CALL GIVE(OUTTRC, KEPT)
      KEPT(2) = KEPT(2) + 1
      KEPT(3) = INT(KEY, 8)
      CALL KNL_GETWORKTRACEBUFFER(GATHER, 1, ISTAT)
      CALL KNL_MCOPYTRACETOTRACE(INTRC, GATHER, 1, 1, 1, INT(KEPT(2)),
     &    ISTAT)
      CALL KNL_SETMODULESTRUCTRESOURCE('KEPT', KEPT, 24, ISTAT)
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
C     The gather is complete: its traces leave. The places that they had
C     in the work buffer are used again.
      SUBROUTINE GIVE(OUTTRC, KEPT)
      INTEGER*8 OUTTRC, KEPT(3), GATHER, MEAN
C     The kernel's record of an array: nine words. The first one is the
C     address of the elements, the seventh says how many there are.
      INTEGER*8 IMEAN(9), IDESC(9)
      INTEGER NGATH, N, I, ISTAT
      EXTERNAL ADD

      NGATH = INT(KEPT(2))
      KEPT(2) = 0
      IF (NGATH .EQ. 0) RETURN
      CALL KNL_GETWORKTRACEBUFFER(GATHER, 1, ISTAT)
      CALL KNL_GETWORKTRACEBUFFER(MEAN, 2, ISTAT)
      CALL KNL_CLEARTRACESET(MEAN, ISTAT)
      DO 10 I = 1, NGATH
        CALL KNL_MGETTRACESAMPLES(MEAN, IMEAN, 1, ISTAT)
        IF (ISTAT .EQ. 0)
     &    CALL KNL_MGETTRACESAMPLES(GATHER, IDESC, I, ISTAT)
        IF (ISTAT .EQ. 0)
     &    CALL APPLY(ADD, IDESC, IMEAN, 1.0 / REAL(NGATH))
10    CONTINUE
      DO 20 I = 1, NGATH
        CALL KNL_GETNUMBEROFTRACES(OUTTRC, N, ISTAT)
        CALL KNL_MCOPYTRACETOTRACE(GATHER, OUTTRC, 1, 1, I, N + 1,
     &      ISTAT)
C       The flag of the last trace of the input was copied, too.
        CALL KNL_SETDATACHANNELFLAG(OUTTRC, 0)
        CALL KNL_MGETTRACESAMPLES(MEAN, IMEAN, 1, ISTAT)
        IF (ISTAT .EQ. 0)
     &    CALL KNL_MGETTRACESAMPLES(OUTTRC, IDESC, N + 1, ISTAT)
        IF (ISTAT .EQ. 0) CALL APPLY(ADD, IMEAN, IDESC, -1.0)
20    CONTINUE
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
