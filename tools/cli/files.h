// The file habits of the tool: results go to a temporary file beside the target and are renamed
// into place only when complete, with the input's mode and times; nothing is overwritten unless
// forced; an interrupt leaves no temporary file behind.
#pragma once

#include <sys/stat.h>

#include <string>

namespace zemdc_cli {

class OutputFile {
  public:
    OutputFile() = default;
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile() { discard(); }

    // Creates the temporary file in the target's directory; false with errno set on failure.
    bool create(const std::string& target);
    [[nodiscard]] int fd() const { return fd_; }
    // Gives the file the input's mode and times, then moves it onto the target; without `force`
    // an existing target is left alone (false, errno EEXIST). False with errno on failure.
    bool commit(const struct stat& meta, bool force);
    // Removes the temporary file (nothing after a commit).
    void discard();

  private:
    int fd_ = -1;
    std::string temp_, target_;
};

// Installs the handlers that remove a pending temporary file on SIGINT, SIGTERM, SIGHUP and
// SIGPIPE before the tool dies of the signal.
void install_cleanup_handlers();

}  // namespace zemdc_cli
