#include "run_process.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <android-base/unique_fd.h>

extern char** environ;

namespace {

void Drain(int out_fd, int err_fd, std::string* out, std::string* err) {
    pollfd fds[] = {{out_fd, POLLIN, 0}, {err_fd, POLLIN, 0}};
    std::string* sinks[] = {out, err};
    int open_count = 2;
    while (open_count > 0) {
        if (poll(fds, 2, -1) < 0) return;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            char buffer[4096];
            const ssize_t n = read(fds[i].fd, buffer, sizeof(buffer));
            if (n > 0) {
                sinks[i]->append(buffer, n);
            } else {
                fds[i].fd = -1;
                --open_count;
            }
        }
    }
}

}  // namespace

ProcessResult RunProcess(const std::vector<std::string>& argv,
                         const std::vector<std::string>& env) {
    ProcessResult result;
    int out_pipe[2], err_pipe[2];
    if (pipe(out_pipe) != 0) return result;
    if (pipe(err_pipe) != 0) {
        close(out_pipe[0]);
        close(out_pipe[1]);
        return result;
    }
    android::base::unique_fd out_read(out_pipe[0]), out_write(out_pipe[1]);
    android::base::unique_fd err_read(err_pipe[0]), err_write(err_pipe[1]);

    std::vector<char*> args;
    for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    std::vector<char*> envp;
    for (char** e = environ; *e != nullptr; ++e) envp.push_back(*e);
    for (const std::string& entry : env) envp.push_back(const_cast<char*>(entry.c_str()));
    envp.push_back(nullptr);

    const pid_t pid = fork();
    if (pid < 0) return result;
    if (pid == 0) {
        dup2(out_write.get(), STDOUT_FILENO);
        dup2(err_write.get(), STDERR_FILENO);
        execve(args[0], args.data(), envp.data());
        _exit(127);
    }
    out_write.reset();
    err_write.reset();
    Drain(out_read.get(), err_read.get(), &result.out, &result.err);

    int status = 0;
    waitpid(pid, &status, 0);
    result.exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}
