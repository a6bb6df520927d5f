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

/// While it lives, the library's reference-counted allocator, on any thread, gives so many blocks and then no more.
class NoRecordMemory {
  public:
    explicit NoRecordMemory(int blocks);
    NoRecordMemory(const NoRecordMemory&) = delete;
    NoRecordMemory& operator=(const NoRecordMemory&) = delete;
    ~NoRecordMemory();
};

/// From now on, and for good, this thread can start no other (EAGAIN).
void ForbidNewThreads();

#endif
