#pragma once

#include <sys/types.h>

#include <string>

namespace platform {

/// A file that must not remain if a signal ends the process: SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM or
/// SIGXCPU. The destructor keeps the file. While the object exists, such a signal ends the child of
/// `setWorkingChild`, then deletes the file, then ends the process. A signal that is ignored when the object
/// is made stays ignored. Only one object may exist at a time. It must be made and destroyed on the same
/// thread.
class UnfinishedFile {
public:
    explicit UnfinishedFile(std::string path);
    ~UnfinishedFile();
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;

private:
    const std::string _path;
};

/// The child that may be writing the unfinished file; 0 if there is none. A signal that ends this process is
/// sent to the child too. If the child has not ended two seconds later, it is killed. Replace the identifier
/// before the child is waited for, because the system may give it to another process afterwards.
void setWorkingChild(pid_t child);

} // namespace platform
