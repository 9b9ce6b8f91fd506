#include "table/background_writer.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <utility>

#include "table/temp_files.h"

namespace formfill_table {

namespace {

using Clock = std::chrono::steady_clock;

// Starting the disk writes of a buffer takes a fraction of a millisecond
// when the disk keeps up; this long means it waited for the disk.
constexpr std::chrono::milliseconds kStall(20);

bool IsRegularFile(int fd) {
  struct stat st;
  return fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

BackgroundWriter::BackgroundWriter(int fd, size_t buffer_size)
    : m_Fd(fd),
      m_BufferSize(buffer_size),
      m_StartWriteback(IsRegularFile(fd)) {
  // The thread never takes the signals that remove temporary files.
  SignalsHeld held;
  m_Thread = std::thread(&BackgroundWriter::Run, this);
}

BackgroundWriter::~BackgroundWriter() {
  {
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_Stop = true;
  }
  m_Changed.notify_all();
  m_Thread.join();
}

bool BackgroundWriter::Hand(std::unique_ptr<char[]>* buffer, size_t size) {
  std::unique_lock<std::mutex> lock(m_Mutex);
  m_Changed.wait(lock, [this] { return !m_Busy; });
  if (m_Error != 0) {
    errno = m_Error;
    return false;
  }
  m_Pending = std::move(*buffer);
  m_PendingSize = size;
  m_Busy = true;
  *buffer = m_Spare != nullptr ? std::move(m_Spare)
                               : std::make_unique<char[]>(m_BufferSize);
  lock.unlock();
  m_Changed.notify_all();
  return true;
}

bool BackgroundWriter::Wait() {
  std::unique_lock<std::mutex> lock(m_Mutex);
  m_Changed.wait(lock, [this] { return !m_Busy; });
  errno = m_Error;
  return m_Error == 0;
}

bool BackgroundWriter::WriteAll(const char* data, size_t size) {
  for (size_t done = 0; done < size;) {
    const ssize_t n = write(m_Fd, data + done, size - done);
    if (n < 0 && errno == EINTR)
      continue;
    if (n <= 0) {
      if (n == 0)
        errno = EIO;
      return false;
    }
    done += static_cast<size_t>(n);
  }
#ifdef SYNC_FILE_RANGE_WRITE
  if (m_StartWriteback) {
    // The whole file: what is already on its way is passed over, and a
    // file opened for appending is covered too.
    const Clock::time_point written = Clock::now();
    sync_file_range(m_Fd, 0, 0, SYNC_FILE_RANGE_WRITE);
    m_StartWriteback = Clock::now() - written < kStall;
  }
#endif
  return true;
}

void BackgroundWriter::Run() {
  std::unique_lock<std::mutex> lock(m_Mutex);
  for (;;) {
    m_Changed.wait(lock, [this] { return m_Busy || m_Stop; });
    if (!m_Busy)
      return;
    std::unique_ptr<char[]> buffer = std::move(m_Pending);
    const size_t size = m_PendingSize;
    const bool failed = m_Error != 0;
    lock.unlock();
    const int error = failed || WriteAll(buffer.get(), size) ? 0 : errno;
    lock.lock();
    if (error != 0)
      m_Error = error;
    m_Spare = std::move(buffer);
    m_Busy = false;
    m_Changed.notify_all();
  }
}

}  // namespace formfill_table
