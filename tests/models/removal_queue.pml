/* The removal queue of a combined copy (fileops/removal_queue.cpp): three threads queue files, and a directory after
 * its files. A batch holds two removals. Waking up is modelled, so that a missing one is found. Checked in every order
 * of steps:
 *
 *   - nothing is removed before its batch was flushed, and no directory while a file of its batch is left;
 *   - gathering and removing together never exceed a batch by more than one removal for each thread;
 *   - everything is removed in the end, and nobody waits for ever. */

#define THREADS 3
#define FILES 2 /* for each thread */
#define BATCH 2

byte gatheredFiles, gatheredDirectories; /* the batch that the walk is copying */
byte flushingFiles, flushingDirectories; /* the batch that is being flushed */
byte filesLeft, directoriesLeft;         /* of the batch that is being removed */
byte notBegun;                           /* files of that batch */
byte threadsRemoving;
bool isAdvancing, mustFlush;
bool isFlushed = true;
bool isAsleep[THREADS + 1];
byte removed, ended;

#define IS_FULL (gatheredFiles + gatheredDirectories + filesLeft + directoriesLeft >= BATCH)

inline WakeAll() {
    d_step { isAsleep[0] = false; isAsleep[1] = false; isAsleep[2] = false; isAsleep[3] = false }
}

inline RemoveFile() {
    atomic { threadsRemoving--; filesLeft--; removed++; WakeAll() }
}

/* The caller has set isAdvancing. */
inline Advance() {
    isFlushed;
    atomic {
        assert(filesLeft + directoriesLeft + threadsRemoving == 0);
        filesLeft = flushingFiles; directoriesLeft = flushingDirectories; notBegun = filesLeft;
        flushingFiles = gatheredFiles; flushingDirectories = gatheredDirectories;
        gatheredFiles = 0; gatheredDirectories = 0;
        isFlushed = false; mustFlush = true;
        WakeAll()
    };
    do
    :: atomic { notBegun > 0 -> notBegun--; threadsRemoving++ }; RemoveFile()
    :: atomic { notBegun == 0 && threadsRemoving > 0 -> isAsleep[me] = true }; !isAsleep[me]
    :: atomic { notBegun == 0 && threadsRemoving == 0 -> assert(filesLeft == 0); break }
    od;
    do
    :: atomic { directoriesLeft > 0 -> directoriesLeft--; removed++ }
    :: directoriesLeft == 0 -> break
    od;
    atomic { isAdvancing = false; WakeAll() }
}

inline MakeRoom() {
    do
    :: atomic { !IS_FULL -> break }
    :: atomic { IS_FULL && !isAdvancing -> isAdvancing = true }; Advance()
    :: atomic { IS_FULL && isAdvancing && notBegun > 0 -> notBegun--; threadsRemoving++ }; RemoveFile()
    :: atomic { IS_FULL && isAdvancing && notBegun == 0 -> isAsleep[me] = true }; !isAsleep[me]
    od
}

active [THREADS] proctype Walk() {
    byte me = _pid;
    byte files;
    for (files : 1 .. FILES) {
        atomic { gatheredFiles++; assert(gatheredFiles + filesLeft <= BATCH + THREADS) };
        MakeRoom()
    }
    gatheredDirectories++;
    MakeRoom();
    ended++
}

active proctype Request() {
    byte me = _pid;
    ended == THREADS;
    isAdvancing = true;
    Advance();
    isAdvancing = true;
    Advance();
    assert(removed == THREADS * (FILES + 1));
    isFlushed
}

active proctype Flush() {
end:
    do
    :: atomic { mustFlush -> mustFlush = false }; isFlushed = true
    od
}
