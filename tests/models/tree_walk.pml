/* The sharing of a walk (fileops/tree_walk.cpp, fileops/walk_helpers.cpp): a tree of seven directories, the thread of
 * the request and two helpers. Each level below the top may be deep, and two directories may be bad. Checked in
 * every order of steps:
 *
 *   - each directory is visited once, and finished after its children, unless the walk has ended at a failure;
 *   - one failure is reported, however many threads meet one;
 *   - nobody waits for ever: not for a part, not for the lock of the deep place. */

#define NODES 7
#define LEFT(d) (2 * (d) + 1)
#define RIGHT(d) (2 * (d) + 2)
#define NOBODY 255

mtype = { KEPT, WAITING, BEGUN, DONE };

mtype state[NODES] = KEPT; /* of the part that a directory is */
byte visits[NODES];
bool isFinished[NODES];
bool isDeep[NODES];
bool isBad[NODES];
byte room = 2; /* helpers without work */
byte deepThread = NOBODY;
byte reports = 0;
bool hasEnded = false;
bool isOver = false;

inline GoDeep(me, d, holds) {
    if
    :: isDeep[d] && deepThread != me -> atomic { deepThread == NOBODY -> deepThread = me }; holds = true
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
        visits[d]++;
        assert(visits[d] == 1)
    };
    if
    :: isBad[d] -> d_step { reports = reports + (hasEnded -> 0 : 1); hasEnded = true }
    :: else
    fi
}

inline VisitLeaf(me, d, holds) {
    if
    :: !hasEnded -> Meet(d); GoDeep(me, d, holds); isFinished[d] = true; Leave(holds)
    :: else
    fi
}

/* Gives a child to a helper, if one is free and this is no deep place. */
inline Offer(me, parent, d) {
    if
    :: !isDeep[parent] && deepThread != me -> atomic {
        if
        :: room > 0 -> room--; state[d] = WAITING
        :: else
        fi
    }
    :: true /* or keeps it */
    fi
}

inline TakeBackOrWait(d, isMine) {
    isMine = false;
    if
    :: atomic { state[d] == WAITING -> state[d] = BEGUN; room++; isMine = true }
    :: atomic { state[d] == KEPT -> isMine = true }
    :: state[d] == DONE
    fi
}

inline VisitMiddle(me, d, holds, deep, isMine) {
    if
    :: !hasEnded ->
        Meet(d);
        if
        :: !isBad[d] ->
            GoDeep(me, d, deep);
            Offer(me, d, LEFT(d));
            Offer(me, d, RIGHT(d));
            TakeBackOrWait(LEFT(d), isMine);
            if :: isMine -> VisitLeaf(me, LEFT(d), holds) :: else fi;
            TakeBackOrWait(RIGHT(d), isMine);
            if :: isMine -> VisitLeaf(me, RIGHT(d), holds) :: else fi;
            Leave(deep);
            assert(hasEnded || (isFinished[LEFT(d)] && isFinished[RIGHT(d)]));
            isFinished[d] = !hasEnded
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
    bool holds, deep, isMine;
    if :: isDeep[1] = true; isDeep[2] = true :: true fi;
    if :: isDeep[3] = true; isDeep[4] = true; isDeep[5] = true; isDeep[6] = true :: true fi;
    if
    :: true
    :: isBad[1] = true
    :: isBad[3] = true; isBad[4] = true
    :: isBad[3] = true; isBad[5] = true
    :: isBad[1] = true; isBad[5] = true
    fi;
    Meet(0);
    Offer(_pid, 0, 1);
    Offer(_pid, 0, 2);
    TakeBackOrWait(1, isMine);
    if :: isMine -> VisitMiddle(_pid, 1, holds, deep, isMine) :: else fi;
    TakeBackOrWait(2, isMine);
    if :: isMine -> VisitMiddle(_pid, 2, holds, deep, isMine) :: else fi;
    assert(hasEnded || (isFinished[1] && isFinished[2]));
    assert(deepThread == NOBODY && reports == (hasEnded -> 1 : 0));
    assert(room == 2);
    isOver = true
}

active [2] proctype Helper() {
    bool holds, deep, isMine;
    do
    :: isOver -> break
    :: Begin(1) -> VisitMiddle(_pid, 1, holds, deep, isMine); Finish(1)
    :: Begin(2) -> VisitMiddle(_pid, 2, holds, deep, isMine); Finish(2)
    :: Begin(3) -> VisitLeaf(_pid, 3, holds); Finish(3)
    :: Begin(4) -> VisitLeaf(_pid, 4, holds); Finish(4)
    :: Begin(5) -> VisitLeaf(_pid, 5, holds); Finish(5)
    :: Begin(6) -> VisitLeaf(_pid, 6, holds); Finish(6)
    od
}
