/* The reference count of a connection (service/socket_server.cpp), for two connections that get the same descriptor
 * number one after the other, and two workers. Checked in every order of steps:
 *
 *   - a worker reads only from a descriptor that is open, and from the connection that it has a reference on;
 *   - a connection is closed once, and none stays open when its client has hung up and the workers are done. */

#define CONNECTIONS 2
#define TASKS 2 /* as many events of a connection may be queued */

bool isOpen = false;
byte refs = 0;
byte connection = 0; /* which one has the descriptor number */
byte tasks = 0;
bool isServing = true;
byte ended = 0; /* workers */

inline SubFdRef() {
    atomic { /* under fdMapMutex */
        assert(isOpen && refs >= 1);
        refs--;
        if
        :: refs == 0 -> isOpen = false
        :: else
        fi
    }
}

active proctype EventLoop() {
    byte i;
    for (i : 1 .. CONNECTIONS) {
        atomic { !isOpen -> isOpen = true; refs = 1; connection = i }
        do
        :: atomic { tasks < TASKS -> tasks++ }
        :: break /* the client hangs up; what is queued for it stays queued */
        od;
        SubFdRef()
    }
    isServing = false
}

active [2] proctype Worker() {
    byte mine;
    bool hasRef;
    do
    :: atomic { tasks > 0 -> tasks-- };
        atomic {
            hasRef = isOpen; /* AddFdRef, under fdMapMutex */
            if
            :: hasRef -> refs++; mine = connection
            :: else
            fi
        }
        if
        :: hasRef ->
            assert(isOpen && connection == mine); /* recv and send */
            SubFdRef()
        :: else
        fi
    :: atomic { !isServing && tasks == 0 -> break }
    od;
    ended++
}

active proctype End() {
    ended == 2 -> assert(!isOpen && refs == 0)
}
