/// @file FileSizeLimit.h
///
/// A disk that seems to be full.
#ifndef FILESIZELIMIT_H
#define FILESIZELIMIT_H

#include <csignal>
#include <sys/resource.h>

/// Files of this process cannot grow beyond `bytes` as long as the object lives: writes across the
/// limit end short or fail.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes) : formerAction(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &former);
        const rlimit limit = {bytes, former.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &former);
        std::signal(SIGXFSZ, formerAction);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    void (*formerAction)(int);
    rlimit former;
};

#endif
