#pragma once
// Threads for the decoder's independent work. Windows gives them through the
// system (the toolchain's C++ runtime has no std::thread there), POSIX through
// the standard library.

// How many processors the system offers the process (at least 1).
unsigned platformProcessorCount();

// Runs work(context) on the calling thread and on threads - 1 new threads, and
// returns when every run has returned. A thread that cannot be started is left
// out: work must share its task through the context, so that the runs that do
// start finish it. work must not throw.
void platformRunOnThreads(unsigned threads, void (*work)(void*), void* context);

// Gives the processor to another thread that is ready to run, if any: for a
// thread that waits on another's progress without a lock.
void platformYield();
