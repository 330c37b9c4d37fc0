#include "files.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace zemdc_cli {
namespace {

// The one temporary file that may exist at a time, for the signal handler: a fixed buffer,
// since a handler may not allocate.
char g_pending[4096];
volatile sig_atomic_t g_has_pending = 0;

void on_signal(int sig) {
    if (g_has_pending) unlink(g_pending);
    signal(sig, SIG_DFL);
    raise(sig);
}

}  // namespace

void install_cleanup_handlers() {
    for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) signal(sig, on_signal);
}

bool OutputFile::create(const std::string& target) {
    target_ = target;
    size_t slash = target.rfind('/');
    std::string dir = slash == std::string::npos ? "" : target.substr(0, slash + 1);
    std::string base = slash == std::string::npos ? target : target.substr(slash + 1);
    temp_ = dir + "." + base + ".zemdc-XXXXXX";
    if (temp_.size() >= sizeof g_pending) {
        errno = ENAMETOOLONG;
        return false;
    }
    // The name is set aside for the handler before the file exists, so that no moment has a file
    // the handler does not know of.
    memcpy(g_pending, temp_.c_str(), temp_.size() + 1);
    fd_ = mkstemp(g_pending);
    if (fd_ < 0) return false;
    temp_ = g_pending;
    g_has_pending = 1;
    return true;
}

bool OutputFile::commit(const struct stat& meta, bool force) {
    // Mode first (mkstemp made it 0600), then the times, which a later write would change.
    fchmod(fd_, meta.st_mode & 07777);
    if (fchown(fd_, meta.st_uid, meta.st_gid) != 0) fchmod(fd_, meta.st_mode & 0777);
    struct timespec times[2] = {meta.st_atim, meta.st_mtim};
    futimens(fd_, times);
    if (close(fd_) != 0) {
        int e = errno;
        fd_ = -1;
        discard();
        errno = e;
        return false;
    }
    fd_ = -1;
    // Without force the move must not replace a target that appeared meanwhile.
    int r = force ? rename(temp_.c_str(), target_.c_str())
                  : renameat2(AT_FDCWD, temp_.c_str(), AT_FDCWD, target_.c_str(), RENAME_NOREPLACE);
    if (r != 0) {
        int e = errno;
        discard();
        errno = e;
        return false;
    }
    g_has_pending = 0;
    temp_.clear();
    return true;
}

void OutputFile::discard() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
    if (!temp_.empty()) {
        g_has_pending = 0;
        unlink(temp_.c_str());
        temp_.clear();
    }
}

}  // namespace zemdc_cli
