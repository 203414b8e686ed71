#include "worker/worker_entry.h"

// On Windows the arguments are ignored: the worker reads its command line
// from the system itself.
int main(int argc, char** argv) { return runWorker(argc, argv); }
