#include <windows.h>

#include "platform/threads.h"

unsigned platformProcessorCount() {
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info.dwNumberOfProcessors > 0 ? unsigned(info.dwNumberOfProcessors) : 1;
}

namespace {

// Handles are kept in place, so that starting a thread allocates nothing that
// could fail once it runs.
constexpr unsigned kMaxThreads = 64;

struct Run {
    void (*work)(void*);
    void* context;
};

DWORD WINAPI startRun(LPVOID run) {
    const Run* r = static_cast<const Run*>(run);
    r->work(r->context);
    return 0;
}

}  // namespace

void platformRunOnThreads(unsigned threads, void (*work)(void*), void* context) {
    Run run{work, context};
    HANDLE started[kMaxThreads];
    unsigned count = 0;
    while (count + 1 < threads && count < kMaxThreads) {
        const HANDLE h = CreateThread(nullptr, 0, startRun, &run, 0, nullptr);
        if (h == nullptr) break;  // the others do its share
        started[count++] = h;
    }
    work(context);
    for (unsigned i = 0; i < count; ++i) {
        WaitForSingleObject(started[i], INFINITE);
        CloseHandle(started[i]);
    }
}

void platformYield() { SwitchToThread(); }
