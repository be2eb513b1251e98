#include "ChildProcess.h"

#include <cerrno>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

std::vector<int> runProcesses(int count, unsigned seconds, const std::function<int(int)>& body)
{
    std::vector<pid_t> children;
    for (int i = 0; i < count; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(seconds); // a test that hangs must not leave processes behind
            _exit(body(i));
        }
        children.push_back(child);
    }
    std::vector<int> results;
    for (const pid_t child : children) {
        int status = 0;
        while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
        const int signalBase = 128;
        results.push_back(child <= 0            ? -1
                          : WIFSIGNALED(status) ? signalBase + WTERMSIG(status)
                                                : WEXITSTATUS(status));
    }
    return results;
}

int numberFromEnvironment(const char* variable, int otherwise)
{
    const char* text = std::getenv(variable);
    return text != nullptr && std::atoi(text) > 0 ? std::atoi(text) : otherwise;
}
