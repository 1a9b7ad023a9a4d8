/* The sharing of a walk (fileops/tree_walk.cpp, fileops/walk_helpers.cpp): the thread of the request and two helpers.
 * In the tree, 0 holds 1 and 2; 1 holds 3 and 4; 2 holds 5 and 6; 3 holds 7 and 8. Which directories are deep does not
 * follow the levels, because the numbers of closed descriptors are used again: a shallow directory may be below a deep
 * one. Up to two directories are bad. Checked in every order of steps:
 *
 *   - each directory is visited once, and finished after its children, unless the walk has ended at a failure;
 *   - one failure is reported, however many threads meet one;
 *   - nobody waits for ever: not for a part, not for the lock of the deep place. */

#define NODES 9
#define NOBODY 255

mtype = { KEPT, WAITING, BEGUN, DONE };

mtype state[NODES] = KEPT; /* of the part that a directory is */
bool isVisited[NODES];
bool isFinished[NODES];
bool isDeep[NODES];
bool isBad[NODES];
byte room = 2; /* helpers without work */
byte deepThread = NOBODY;
byte reports = 0;
bool hasEnded = false;
bool isOver = false;

/* What each thread knows: for each level whether it took the lock there, and whether the part that it looks at is left
 * to it. */
#define LOCALS bool upperHolds, lowerHolds, leafHolds, isMine

inline GoDeep(d, holds) {
    if
    :: isDeep[d] && deepThread != _pid -> atomic { deepThread == NOBODY -> deepThread = _pid }; holds = true
    :: else -> holds = false
    fi
}

inline Leave(holds) {
    if
    :: holds -> deepThread = NOBODY
    :: else
    fi
}

/* Visits the directory itself. A bad one is not entered. */
inline Meet(d) {
    d_step {
        assert(!isVisited[d]);
        isVisited[d] = true
    };
    if
    :: isBad[d] -> d_step { reports = reports + (hasEnded -> 0 : 1); hasEnded = true }
    :: else
    fi
}

/* Gives a child to a helper, if one is free and the thread is not deep; or keeps it. */
inline Offer(parent, d) {
    if
    :: !isDeep[parent] && deepThread != _pid -> atomic {
        if
        :: room > 0 -> room--; state[d] = WAITING
        :: else
        fi
    }
    :: true
    fi
}

inline TakeBackOrWait(d) {
    if
    :: atomic { state[d] == WAITING -> state[d] = BEGUN; room++; isMine = true }
    :: atomic { state[d] == KEPT -> isMine = true }
    :: atomic { state[d] == DONE -> isMine = false }
    fi
}

inline VisitLeaf(d) {
    if
    :: !hasEnded -> Meet(d); GoDeep(d, leafHolds); isFinished[d] = true; Leave(leafHolds)
    :: else
    fi
}

inline VisitOwnLeaf(d) {
    TakeBackOrWait(d);
    if :: isMine -> VisitLeaf(d) :: else fi
}

inline FinishDirectory(d, left, right) {
    assert(hasEnded || (isFinished[left] && isFinished[right]));
    isFinished[d] = !hasEnded
}

/* A directory that holds two leaves. */
inline VisitLower(d, left, right) {
    if
    :: !hasEnded ->
        Meet(d);
        if
        :: !isBad[d] ->
            GoDeep(d, lowerHolds);
            Offer(d, left);
            Offer(d, right);
            VisitOwnLeaf(left);
            VisitOwnLeaf(right);
            Leave(lowerHolds);
            FinishDirectory(d, left, right)
        :: else
        fi
    :: else
    fi
}

inline VisitUpper() {
    if
    :: !hasEnded ->
        Meet(1);
        if
        :: !isBad[1] ->
            GoDeep(1, upperHolds);
            Offer(1, 3);
            Offer(1, 4);
            VisitOwnLeaf(4);
            TakeBackOrWait(3);
            if :: isMine -> VisitLower(3, 7, 8) :: else fi;
            Leave(upperHolds);
            FinishDirectory(1, 3, 4)
        :: else
        fi
    :: else
    fi
}

#define Begin(d) atomic { state[d] == WAITING -> state[d] = BEGUN }

inline Finish(d) {
    d_step { room++; state[d] = DONE }
}

active proctype Request() {
    LOCALS;
    if
    :: true
    :: isDeep[5] = true; isDeep[7] = true
    :: isDeep[1] = true; isDeep[2] = true; isDeep[3] = true; isDeep[5] = true; isDeep[7] = true
    :: isDeep[1] = true; isDeep[2] = true; isDeep[7] = true /* 3 is shallow, below a deep one */
    fi;
    if
    :: true
    :: isBad[1] = true
    :: isBad[3] = true; isBad[5] = true
    :: isBad[7] = true; isBad[8] = true
    fi;
    Meet(0);
    Offer(0, 1);
    Offer(0, 2);
    TakeBackOrWait(1);
    if :: isMine -> VisitUpper() :: else fi;
    TakeBackOrWait(2);
    if :: isMine -> VisitLower(2, 5, 6) :: else fi;
    assert(hasEnded || (isFinished[1] && isFinished[2]));
    assert(deepThread == NOBODY && reports == (hasEnded -> 1 : 0));
    assert(room == 2);
    isOver = true
}

active [2] proctype Helper() {
    LOCALS;
    do
    :: isOver -> break
    :: Begin(1) -> VisitUpper(); Finish(1)
    :: Begin(2) -> VisitLower(2, 5, 6); Finish(2)
    :: Begin(3) -> VisitLower(3, 7, 8); Finish(3)
    :: Begin(4) -> VisitLeaf(4); Finish(4)
    :: Begin(5) -> VisitLeaf(5); Finish(5)
    :: Begin(6) -> VisitLeaf(6); Finish(6)
    :: Begin(7) -> VisitLeaf(7); Finish(7)
    :: Begin(8) -> VisitLeaf(8); Finish(8)
    od
}
