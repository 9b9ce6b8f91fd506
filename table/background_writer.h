// Writing on a thread of its own.
#ifndef FORMFILL_TABLE_BACKGROUND_WRITER_H_
#define FORMFILL_TABLE_BACKGROUND_WRITER_H_

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <thread>

namespace formfill_table {

// Writes full buffers to a file descriptor on a thread of its own, so that
// the kernel's share of writing runs beside the reading and converting
// instead of after it. One buffer is written while the caller fills the
// other.
//
// For a regular file, the disk writes of each buffer are started as soon
// as it is written, so that few are left for the end: renaming a file over
// an old one, or closing one that was truncated, makes some file systems
// start them all then and wait until they are under way. That is given up
// for good once starting them has to wait for the disk: then the disk is
// the slower part, and the page cache had better take the table as it
// comes.
class BackgroundWriter {
 public:
  // buffer_size: the size of the buffers Hand gives out.
  BackgroundWriter(int fd, size_t buffer_size);
  // Waits for the buffer being written, if any.
  ~BackgroundWriter();
  BackgroundWriter(const BackgroundWriter&) = delete;
  BackgroundWriter& operator=(const BackgroundWriter&) = delete;

  // Gives the first size bytes of *buffer to be written and puts in
  // *buffer the one to fill next. False, with errno set, when an earlier
  // write failed; then nothing more is written.
  bool Hand(std::unique_ptr<char[]>* buffer, size_t size);
  // Waits until everything handed is written; false, with errno set, when
  // a write failed.
  bool Wait();

 private:
  void Run();
  bool WriteAll(const char* data, size_t size);

  const int m_Fd;
  const size_t m_BufferSize;
  bool m_StartWriteback;  // only the thread touches it once it runs

  std::mutex m_Mutex;
  std::condition_variable m_Changed;
  // Guarded by m_Mutex:
  std::unique_ptr<char[]> m_Pending;  // handed, not yet written
  size_t m_PendingSize = 0;
  bool m_Busy = false;                // m_Pending is being written
  std::unique_ptr<char[]> m_Spare;    // written, free to fill
  bool m_Stop = false;
  int m_Error = 0;                    // errno of the write that failed

  std::thread m_Thread;
};

}  // namespace formfill_table

#endif  // FORMFILL_TABLE_BACKGROUND_WRITER_H_
