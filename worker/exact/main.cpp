#include "model/exact_decode.h"
#include "worker/worker_entry.h"

// As the worker: on Windows the arguments are ignored and the command line
// is read from the system itself.
int main(int argc, char** argv) {
    return runWorkerWith(argc, argv, static_cast<DecodeFunction>(&model::decodeExactModel));
}
