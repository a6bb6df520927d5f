/// Takes from the process what it seldom lacks.
#ifndef SCARCITY_H
#define SCARCITY_H

/// While it lives, new (std::nothrow) on this thread finds no memory.
class NoMemory {
  public:
    NoMemory();
    NoMemory(const NoMemory&) = delete;
    NoMemory& operator=(const NoMemory&) = delete;
    ~NoMemory();
};

/// From now on, and for good, this thread can start no other (EAGAIN).
void ForbidNewThreads();

#endif
