#include "piv_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace PIV {

int OpenRegularFile(const char* path) {
    if (!path) {
        errno = EINVAL;
        return -1;
    }
    const int fd = ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return -1;
    struct stat info {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        const int why = S_ISDIR(info.st_mode) ? EISDIR : ENXIO;
        ::close(fd);
        errno = why;
        return -1;
    }
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags >= 0) ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
    return fd;
}

FilePtr OpenFile(const char* path, const char* mode) {
    if (!path || !mode) return FilePtr();
    if (mode[0] != 'r' || std::strchr(mode, '+')) return FilePtr(std::fopen(path, mode));
    const int fd = OpenRegularFile(path);
    if (fd < 0) return FilePtr();
    std::FILE* file = ::fdopen(fd, mode);
    if (!file) ::close(fd);
    return FilePtr(file);
}

TempFile::TempFile(const std::string& target) : m_path(target + ".tmp-XXXXXX") {
    int fd = ::mkstemp(&m_path[0]);
    if (fd < 0) {
        m_path.clear();
        return;
    }
    // mkstemp creates owner-only files: a replaced file keeps its mode, a new
    // one gets the mode any other new file of this process gets.
    struct stat existing;
    if (::stat(target.c_str(), &existing) == 0) {
        ::fchmod(fd, existing.st_mode & 07777);
    } else {
        const mode_t mask = ::umask(0);
        ::umask(mask);
        ::fchmod(fd, 0666 & ~mask);
    }
    m_file = ::fdopen(fd, "wb");
    if (!m_file) ::close(fd);
}

TempFile::~TempFile() {
    if (m_file) std::fclose(m_file);
    if (!m_path.empty()) ::unlink(m_path.c_str());
}

namespace {

// Flushes what the system holds of an open descriptor to the disk.
bool _syncDescriptor(int fd) {
    return ::fsync(fd) == 0 || errno == EINVAL;  // EINVAL: the file system cannot sync
}

bool _syncPath(const char* path, int flags) {
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC | flags);
    if (fd < 0) return false;
    const bool ok = _syncDescriptor(fd);
    return ::close(fd) == 0 && ok;
}

std::string _folderOf(const char* path) {
    const char* slash = std::strrchr(path, '/');
    if (!slash) return ".";
    return slash == path ? "/" : std::string(path, std::size_t(slash - path));
}

}  // namespace

bool TempFile::finish(bool sync) {
    std::FILE* f = m_file;
    m_file = nullptr;
    if (!f) return false;
    // A write that failed earlier leaves only the error mark; the last
    // buffer fails at the flush or the close. Either is a failed save.
    bool ok = !std::ferror(f) && std::fflush(f) == 0 && (!sync || _syncDescriptor(::fileno(f)));
    ok = std::fclose(f) == 0 && ok;
    return ok;
}

bool TempFile::commit(const char* target) {
    if (m_path.empty() || !target) return false;
    // A file that another library wrote through its path is synced through
    // the path as well.
    const bool synced = m_file ? finish(true) : _syncPath(m_path.c_str(), 0);
    if (!synced || std::rename(m_path.c_str(), target) != 0) return false;
    m_path.clear();
    // The rename lasts once the folder is on disk. The target is replaced
    // by now; a folder that cannot be synced does not undo that.
    _syncPath(_folderOf(target).c_str(), O_DIRECTORY);
    return true;
}

}  // namespace PIV
