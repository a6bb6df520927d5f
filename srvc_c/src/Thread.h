/// Threads of the service's own: never joined, never stopped.
#ifndef THREAD_H
#define THREAD_H

/// Starts a detached thread with default attributes; tools show the first 15 characters of its name.
/// Answers 0 or the error number.
int StartThread(const char* name, void (*run)());

#endif
