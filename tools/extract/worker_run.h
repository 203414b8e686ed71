#pragma once
// Runs the worker on one model exactly as a PDF viewer does: the bytes go to
// a private temporary file, the worker gets its path as its only argument,
// and its standard output is the answer. The worker is untrusted: it runs
// under a time and a memory limit, in a process group of its own, and what
// it prints is bounded.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace extract {

struct WorkerLimits {
    double timeout_seconds = 30;
    uint64_t memory_mb = 2048;  // address space of the worker; 0 for no limit
};

struct WorkerRun {
    enum class End {
        Exited,           // ended by itself; exit_status holds its status
        Signalled,        // killed by a signal it did not get from us
        TimedOut,         // stopped by us at the time limit
        AnswerTooLong,    // stopped by us: it printed more than any result stream holds
        CannotStart,      // the executable could not be run
        TemporaryFailed,  // the temporary file could not be written
    };
    End end = End::Exited;
    int exit_status = 0;
    int signal = 0;
    std::string detail;             // the system's reason for CannotStart / TemporaryFailed
    std::vector<uint8_t> answer;    // everything read from its standard output
    std::string diagnostics;        // the start of its standard error
    double seconds = 0;
};

// Called about ten times a second while the worker runs, with the seconds
// since it started.
using ProgressCallback = std::function<void(double)>;

WorkerRun runWorker(const std::string& worker, const std::vector<uint8_t>& bytes, const WorkerLimits& limits,
                    const ProgressCallback& progress = {});

// A one-line English account of a run that did not end by itself with a
// status of 0, for a per-model error message ("the worker ... ").
std::string describeWorkerFailure(const WorkerRun& run, const WorkerLimits& limits);

// Where the worker is: beside this program's executable, else on PATH.
// Empty when neither has an executable "meshdrone".
std::string findDefaultWorker();

// An executable `name`: beside the program `besides` (when given), else
// beside this program's executable, else on PATH; empty when none is found.
// The exact decoder's program, meshdrone-exact, is found so.
std::string findProgram(const std::string& name, const std::string& besides);

// The directory for the temporary files: $TMPDIR when set, else /tmp.
std::string temporaryDirectory();

}  // namespace extract
