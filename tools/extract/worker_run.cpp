#include "tools/extract/worker_run.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace extract {

namespace {

// The longest answer a worker can give: its 48-byte header and a payload of
// at most 256 MiB, which it refuses to exceed.
constexpr uint64_t kHeaderBytes = 48;
constexpr uint64_t kMaxAnswerBytes = kHeaderBytes + (uint64_t{256} << 20);
constexpr size_t kMaxDiagnostics = 4096;

// What the signal handler must clean up: the temporary file and the worker's
// process group. Written only while the fatal signals are blocked.
char g_temporaryPath[PATH_MAX];
volatile sig_atomic_t g_haveTemporary = 0;
volatile sig_atomic_t g_workerGroup = 0;

constexpr int kFatalSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

void onFatalSignal(int number) {
    if (g_workerGroup > 0) ::kill(-static_cast<pid_t>(g_workerGroup), SIGKILL);
    if (g_haveTemporary) ::unlink(g_temporaryPath);
    // Die of the same signal, so that the shell sees what happened.
    ::signal(number, SIG_DFL);
    ::raise(number);
}

void installSignalCleanup() {
    static bool installed = false;
    if (installed) return;
    installed = true;
    for (int number : kFatalSignals) {
        struct sigaction current {};
        if (sigaction(number, nullptr, &current) != 0 || current.sa_handler == SIG_IGN) continue;  // nohup
        struct sigaction action {};
        action.sa_handler = onFatalSignal;
        sigemptyset(&action.sa_mask);
        sigaction(number, &action, nullptr);
    }
}

// Blocks the fatal signals for its lifetime, so that the globals above are
// never seen half written.
class FatalSignalsBlocked {
public:
    FatalSignalsBlocked() {
        sigset_t set;
        sigemptyset(&set);
        for (int number : kFatalSignals) sigaddset(&set, number);
        sigprocmask(SIG_BLOCK, &set, &previous_);
    }
    ~FatalSignalsBlocked() { sigprocmask(SIG_SETMASK, &previous_, nullptr); }
    const sigset_t& previous() const { return previous_; }

private:
    sigset_t previous_;
};

// The temporary file with the model's bytes; removed when it goes out of scope.
class TemporaryModelFile {
public:
    explicit TemporaryModelFile(const std::vector<uint8_t>& bytes) {
        std::string pattern = temporaryDirectory() + "/meshdrone-XXXXXX";
        std::vector<char> name(pattern.begin(), pattern.end());
        name.push_back('\0');
        int fd;
        {
            FatalSignalsBlocked blocked;
            fd = ::mkstemp(name.data());  // creates the file with mode 0600, open only to us
            if (fd >= 0) {
                path_ = name.data();
                if (path_.size() < sizeof g_temporaryPath) {
                    std::memcpy(g_temporaryPath, path_.c_str(), path_.size() + 1);
                    g_haveTemporary = 1;
                }
            }
        }
        if (fd < 0) {
            error_ = "cannot create a temporary file in " + temporaryDirectory() + ": " + std::strerror(errno);
            return;
        }
        size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                error_ = "cannot write the temporary file " + path_ + ": " + std::strerror(n < 0 ? errno : EIO);
                break;
            }
            done += static_cast<size_t>(n);
        }
        if (::close(fd) != 0 && error_.empty()) {
            error_ = "cannot write the temporary file " + path_ + ": " + std::strerror(errno);
        }
    }
    ~TemporaryModelFile() {
        if (path_.empty()) return;
        FatalSignalsBlocked blocked;
        ::unlink(path_.c_str());
        g_haveTemporary = 0;
    }
    TemporaryModelFile(const TemporaryModelFile&) = delete;
    TemporaryModelFile& operator=(const TemporaryModelFile&) = delete;

    const std::string& path() const { return path_; }
    const std::string& error() const { return error_; }

private:
    std::string path_;
    std::string error_;
};

struct Pipe {
    int read = -1, write = -1;
    bool open() {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0) return false;
        read = fds[0];
        write = fds[1];
        return true;
    }
    static void closeEnd(int& fd) {
        if (fd >= 0) ::close(fd);
        fd = -1;
    }
    ~Pipe() {
        closeEnd(read);
        closeEnd(write);
    }
};

// The size that the header announces for the whole stream, or 0 when the
// first 48 bytes have not arrived yet.
uint64_t announcedSize(const std::vector<uint8_t>& answer) {
    if (answer.size() < kHeaderBytes) return 0;
    const auto u32 = [&](size_t offset) {
        return uint64_t{answer[offset]} | uint64_t{answer[offset + 1]} << 8 | uint64_t{answer[offset + 2]} << 16 |
               uint64_t{answer[offset + 3]} << 24;
    };
    if (answer[0] == 0) return kHeaderBytes + u32(16);
    return kHeaderBytes + u32(4) * 15 + u32(8) * 12 + u32(12) * 188 + (answer[1] != 0 ? 36 : 0);
}

// Runs in the forked child before exec: only async-signal-safe calls.
[[noreturn]] void startChild(const char* worker, const char* path, int out, int err, int status,
                             const WorkerLimits& limits, const sigset_t& mask) {
    ::setpgid(0, 0);
    const int input = ::open("/dev/null", O_RDONLY);
    if (input >= 0) ::dup2(input, STDIN_FILENO);
    ::dup2(out, STDOUT_FILENO);
    ::dup2(err, STDERR_FILENO);
    if (limits.memory_mb > 0) {
        const rlim_t bytes = static_cast<rlim_t>(limits.memory_mb) << 20;
        const struct rlimit memory = {bytes, bytes};
        ::setrlimit(RLIMIT_AS, &memory);
    }
    // A crash leaves no core file; a worker whose host died (killed by
    // SIGKILL, with no chance to stop it) spins only a little past its limit.
    const struct rlimit core = {0, 0};
    ::setrlimit(RLIMIT_CORE, &core);
    if (limits.timeout_seconds > 0) {
        const rlim_t seconds = static_cast<rlim_t>(limits.timeout_seconds) + 2;
        const struct rlimit cpu = {seconds, seconds};
        ::setrlimit(RLIMIT_CPU, &cpu);
    }
    ::sigprocmask(SIG_SETMASK, &mask, nullptr);
    char* const argv[] = {const_cast<char*>(worker), const_cast<char*>(path), nullptr};
    ::execv(worker, argv);
    const int error = errno;
    [[maybe_unused]] ssize_t ignored = ::write(status, &error, sizeof error);
    ::_exit(127);
}

}  // namespace

std::string temporaryDirectory() {
    const char* dir = std::getenv("TMPDIR");
    return dir != nullptr && dir[0] != '\0' ? dir : "/tmp";
}

WorkerRun runWorker(const std::string& worker, const std::vector<uint8_t>& bytes, const WorkerLimits& limits,
                    const ProgressCallback& progress) {
    installSignalCleanup();
    WorkerRun run;
    const auto started = std::chrono::steady_clock::now();
    const auto elapsed = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count(); };

    TemporaryModelFile temporary(bytes);
    if (!temporary.error().empty()) {
        run.end = WorkerRun::End::TemporaryFailed;
        run.detail = temporary.error();
        return run;
    }

    Pipe out, err, status;
    if (!out.open() || !err.open() || !status.open()) {
        run.end = WorkerRun::End::CannotStart;
        run.detail = std::string("cannot create pipes: ") + std::strerror(errno);
        return run;
    }
    pid_t pid;
    {
        FatalSignalsBlocked blocked;
        pid = ::fork();
        if (pid == 0) startChild(worker.c_str(), temporary.path().c_str(), out.write, err.write, status.write, limits,
                                 blocked.previous());
        if (pid > 0) {
            ::setpgid(pid, pid);  // also here, so the group exists before we may signal it
            g_workerGroup = pid;
        }
    }
    if (pid < 0) {
        run.end = WorkerRun::End::CannotStart;
        run.detail = std::string("cannot start a process: ") + std::strerror(errno);
        return run;
    }
    Pipe::closeEnd(out.write);
    Pipe::closeEnd(err.write);
    Pipe::closeEnd(status.write);

    // The status pipe closes at a successful exec; an errno arrives otherwise.
    int execError = 0;
    ssize_t got;
    do {
        got = ::read(status.read, &execError, sizeof execError);
    } while (got < 0 && errno == EINTR);
    const bool execFailed = got == static_cast<ssize_t>(sizeof execError);

    const auto stopWorker = [&] { ::kill(-pid, SIGKILL); };
    bool stopped = false;
    if (!execFailed) {
        ::fcntl(out.read, F_SETFL, O_NONBLOCK);
        ::fcntl(err.read, F_SETFL, O_NONBLOCK);
        std::vector<uint8_t> block(1 << 16);
        while ((out.read >= 0 || err.read >= 0) && !stopped) {
            if (limits.timeout_seconds > 0 && elapsed() >= limits.timeout_seconds) {
                run.end = WorkerRun::End::TimedOut;
                stopped = true;
                break;
            }
            struct pollfd fds[2] = {{out.read, POLLIN, 0}, {err.read, POLLIN, 0}};
            const int ready = ::poll(fds, 2, 100);
            if (progress) progress(elapsed());
            if (ready < 0 && errno != EINTR) break;
            for (int i = 0; i < 2 && ready > 0; ++i) {
                int& fd = i == 0 ? out.read : err.read;
                if (fd < 0 || fds[i].revents == 0) continue;
                const ssize_t n = ::read(fd, block.data(), block.size());
                if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR)) {
                    Pipe::closeEnd(fd);
                    continue;
                }
                if (n < 0) continue;
                if (i == 1) {
                    const size_t room = kMaxDiagnostics - std::min(kMaxDiagnostics, run.diagnostics.size());
                    run.diagnostics.append(reinterpret_cast<const char*>(block.data()), std::min<size_t>(room, n));
                    continue;
                }
                run.answer.insert(run.answer.end(), block.data(), block.data() + n);
                const uint64_t announced = announcedSize(run.answer);
                if (run.answer.size() > kMaxAnswerBytes || announced > kMaxAnswerBytes) {
                    run.end = WorkerRun::End::AnswerTooLong;
                    run.detail = "the worker's answer is longer than any result stream can be";
                    stopped = true;
                } else if (announced > 0 && run.answer.size() > announced) {
                    run.end = WorkerRun::End::AnswerTooLong;
                    run.detail = "the worker printed more than its result stream announced (" +
                                 std::to_string(announced) + " bytes)";
                    stopped = true;
                }
            }
        }
    }

    // The worker may close its output and still run: it keeps its time limit.
    // Its end is observed without reaping it, so that its process group is
    // still ours to signal when the rest of the group is ended below.
    while (true) {
        if (stopped) stopWorker();
        siginfo_t info{};
        const int result = ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT | (stopped ? 0 : WNOHANG));
        if (result == 0 && info.si_pid == pid) break;
        if (result < 0 && errno != EINTR) break;
        if (result == 0) {
            if (limits.timeout_seconds > 0 && elapsed() >= limits.timeout_seconds) {
                run.end = WorkerRun::End::TimedOut;
                stopped = true;
                continue;
            }
            if (progress) progress(elapsed());
            ::usleep(10000);
        }
    }
    // Whatever it started is ended with it; the group's other members (a
    // shell's children) would otherwise outlive the run.
    ::kill(-pid, SIGKILL);
    int waitStatus = 0;
    while (::waitpid(pid, &waitStatus, 0) < 0 && errno == EINTR) {
    }
    {
        FatalSignalsBlocked blocked;
        g_workerGroup = 0;
    }
    run.seconds = elapsed();

    if (execFailed) {
        run.end = WorkerRun::End::CannotStart;
        run.detail = "cannot start the worker " + worker + ": " + std::strerror(execError);
    } else if (!stopped) {
        if (WIFSIGNALED(waitStatus)) {
            run.end = WorkerRun::End::Signalled;
            run.signal = WTERMSIG(waitStatus);
        } else {
            run.end = WorkerRun::End::Exited;
            run.exit_status = WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1;
        }
    }
    return run;
}

namespace {

std::string firstLine(const std::string& text) {
    std::string line = text.substr(0, text.find('\n'));
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
    for (char& c : line) {
        if (static_cast<unsigned char>(c) < ' ') c = ' ';
    }
    return line.size() > 200 ? line.substr(0, 200) + "..." : line;
}

}  // namespace

std::string describeWorkerFailure(const WorkerRun& run, const WorkerLimits& limits) {
    std::string text;
    switch (run.end) {
        case WorkerRun::End::Exited:
            text = "the worker ended with status " + std::to_string(run.exit_status);
            if (run.exit_status == 1) text += " (its answer could not be written whole)";
            break;
        case WorkerRun::End::Signalled: {
            const char* name = ::strsignal(run.signal);
            text = "the worker crashed (signal " + std::to_string(run.signal) + ", " + (name != nullptr ? name : "?") + ")";
            // An allocation refused by the address-space limit ends a C++
            // program in abort(); touching memory past it in a segfault.
            const bool memoryLike = run.signal == SIGABRT || run.signal == SIGSEGV || run.signal == SIGBUS;
            if (memoryLike && limits.memory_mb > 0) {
                text += "; it may have run into its memory limit of " + std::to_string(limits.memory_mb) +
                        " MB (--memory)";
            }
            if (run.signal == SIGXCPU) text += "; it used up its processor time";
            break;
        }
        case WorkerRun::End::TimedOut: {
            char seconds[32];
            std::snprintf(seconds, sizeof seconds, "%g", limits.timeout_seconds);
            text = std::string("the worker did not finish within ") + seconds + " s and was stopped (--timeout)";
            break;
        }
        case WorkerRun::End::AnswerTooLong:
        case WorkerRun::End::CannotStart:
        case WorkerRun::End::TemporaryFailed: text = run.detail; break;
    }
    const std::string said = firstLine(run.diagnostics);
    if (!said.empty() && run.end != WorkerRun::End::CannotStart) text += "; it said: " + said;
    return text;
}

std::string findDefaultWorker() { return findProgram("meshdrone", ""); }

std::string findProgram(const std::string& name, const std::string& besides) {
    const auto executable = [](const std::string& path) {
        struct stat info;
        return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && ::access(path.c_str(), X_OK) == 0;
    };
    const auto directory = [](const std::string& path) {
        const size_t slash = path.find_last_of('/');
        return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
    };
    if (!besides.empty() && executable(directory(besides) + "/" + name)) return directory(besides) + "/" + name;
    char self[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
    if (n > 0) {
        const std::string dir = directory(std::string(self, static_cast<size_t>(n)));
        if (executable(dir + "/" + name)) return dir + "/" + name;
    }
    const char* path = std::getenv("PATH");
    if (path == nullptr) return "";
    std::string rest = path;
    size_t start = 0;
    while (start <= rest.size()) {
        const size_t end = std::min(rest.find(':', start), rest.size());
        std::string dir = rest.substr(start, end - start);
        if (dir.empty()) dir = ".";
        if (executable(dir + "/" + name)) return dir + "/" + name;
        start = end + 1;
    }
    return "";
}

}  // namespace extract
