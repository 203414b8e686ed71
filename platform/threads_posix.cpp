#include <system_error>
#include <thread>
#include <vector>

#include "platform/threads.h"

unsigned platformProcessorCount() {
    const unsigned n = std::thread::hardware_concurrency();
    return n > 0 ? n : 1;
}

void platformRunOnThreads(unsigned threads, void (*work)(void*), void* context) {
    std::vector<std::thread> started;
    for (unsigned i = 1; i < threads; ++i) {
        try {
            started.emplace_back(work, context);
        } catch (const std::exception&) {
            break;  // no thread (or no memory for one): the others do its share
        }
    }
    work(context);
    for (std::thread& t : started) t.join();
}

void platformYield() { std::this_thread::yield(); }
