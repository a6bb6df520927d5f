/// Makes system calls of the code under test fail, one kind at a time.
///
/// The linker's --wrap puts the functions of Faults.cpp in front of the calls that this project's own code makes; those
/// of the libraries, and so of the tests' own tools, stay as they are. See ecallui_faulty_test in CMakeLists.txt.
#ifndef FAULTS_H
#define FAULTS_H

#include <climits>
#include <cstddef>
#include <string>

struct CallFailures {
    std::string path = {};          ///< only calls on files whose path holds this; for calls that have a file
    const void* object = {};        ///< only calls on this mutex; null: on any
    const void* exceptObject = {};  ///< no call on this mutex
    int passing = 0;                ///< so many matching calls still work
    int failing = INT_MAX;          ///< so many then fail, the later ones work again
    long bytes = -1;                ///< a write or read moves so many bytes at most instead of failing
};

/// While it lives, matching calls of the function fail with the error. One at a time.
class CallFault {
  public:
    CallFault(std::string function, int error, CallFailures plan = {});
    CallFault(const CallFault&) = delete;
    CallFault& operator=(const CallFault&) = delete;
    ~CallFault();

    /// How many calls matched so far, failed or not.
    int Calls() const;
};

/// While it lives, a thread may unlock a mutex that another one holds; not "Trace". That fails by itself with EPERM.
/// ThreadSanitizer would report the misuse, so under it the answer is given in the mutex's place.
class ForeignUnlock {
  public:
    ForeignUnlock();

  private:
#ifdef __SANITIZE_THREAD__
    CallFault fault;
#endif
};

/// While it lives, the clock shows this time.
class FixedClock {
  public:
    FixedClock(long long seconds, long nanoseconds);
    FixedClock(const FixedClock&) = delete;
    FixedClock& operator=(const FixedClock&) = delete;
    ~FixedClock();
};

#endif
