#include "table/table_writer.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <utility>

#include "table/temp_files.h"

namespace formfill_table {

namespace {

// One table takes the whole input: a large buffer means few system calls.
constexpr size_t kSingleBuffer = 256 * 1024;
// Split tables share the memory: many small buffers, few open at a time.
constexpr size_t kSplitBuffer = 16 * 1024;
constexpr size_t kMaxOpen = 32;
constexpr size_t kMaxNameBytes = 100;

mode_t CurrentUmask() {
  const mode_t mask = umask(0);
  umask(mask);
  return mask;
}

bool IsKept(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
         (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '_' ||
         c >= 0x80;
}

}  // namespace

TableFile::TableFile(size_t buffer_size, bool background)
    : m_Capacity(buffer_size), m_Background(background) {}

TableFile::~TableFile() {
  m_Writer.reset();  // its last write goes to the file before it is closed
  if (m_Fd > STDERR_FILENO)
    close(m_Fd);
  if (!m_Direct && !m_Temp.empty()) {
    SignalsHeld held;
    if (!m_Done)
      unlink(m_Temp.c_str());
    UnregisterTempFile(&m_Temp);
  }
}

bool TableFile::Fail(const std::string& what, std::string* err) const {
  *err = what + " " + (m_Path.empty() ? "standard output" : m_Path) + ": " +
         strerror(errno);
  return false;
}

bool TableFile::Create(const std::string& path, std::string* err) {
  m_Buffer.reset(new char[m_Capacity]);
  if (!Open(path, err))
    return false;
  if (m_Background)
    m_Writer = std::make_unique<BackgroundWriter>(m_Fd, m_Capacity);
  return true;
}

bool TableFile::Open(const std::string& path, std::string* err) {
  if (path.empty() || path == "-") {
    m_Fd = STDOUT_FILENO;
    return true;
  }
  m_Path = path;
  struct stat st;
  if (stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode)) {
    // A device or a pipe is written as it is: renaming a file onto it
    // would replace /dev/null or a named pipe with a plain file.
    m_Direct = true;
    m_Temp = path;
    m_Fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    return m_Fd >= 0 || Fail("cannot open", err);
  }
  // A link is followed: the file it names gets the table and the link
  // stays a link.
  char resolved[PATH_MAX];
  m_Target = lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode) &&
                     realpath(path.c_str(), resolved) != nullptr
                 ? resolved
                 : path;
  std::string temp = m_Target + ".XXXXXX";
  {
    // Registered as it is made, so that no signal comes in between.
    SignalsHeld held;
    m_Fd = mkstemp(temp.data());
    if (m_Fd < 0)
      return Fail("cannot create", err);
    m_Temp = temp;
    RegisterTempFile(&m_Temp);
  }
  // mkstemp makes the file private; the table gets the mode of any file the
  // user creates.
  if (fchmod(m_Fd, 0666 & ~CurrentUmask()) != 0)
    return Fail("cannot set the mode of", err);
  return true;
}

bool TableFile::Flush(std::string* err) {
  if (m_Writer != nullptr) {
    const size_t size = m_Used;
    m_Used = 0;
    return m_Writer->Hand(&m_Buffer, size) || Fail("cannot write", err);
  }
  size_t done = 0;
  while (done < m_Used) {
    const ssize_t n = write(m_Fd, m_Buffer.get() + done, m_Used - done);
    if (n < 0 && errno == EINTR)
      continue;
    if (n <= 0)
      return Fail("cannot write", err);
    done += static_cast<size_t>(n);
  }
  m_Used = 0;
  return true;
}

bool TableFile::Write(const char* data, size_t size, std::string* err) {
  while (size > m_Capacity - m_Used) {
    const size_t part = m_Capacity - m_Used;
    memcpy(m_Buffer.get() + m_Used, data, part);
    m_Used += part;
    data += part;
    size -= part;
    if (!Flush(err))
      return false;
  }
  memcpy(m_Buffer.get() + m_Used, data, size);
  m_Used += size;
  return true;
}

bool TableFile::Park(std::string* err) {
  if (!Flush(err))
    return false;
  if (close(m_Fd) != 0) {
    m_Fd = -1;
    return Fail("cannot write", err);
  }
  m_Fd = -1;
  // A parked file keeps no buffer: thousands of split tables cost only
  // their names.
  m_Buffer.reset();
  return true;
}

bool TableFile::Resume(std::string* err) {
  m_Buffer.reset(new char[m_Capacity]);
  m_Fd = open(m_Temp.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  return m_Fd >= 0 || Fail("cannot reopen", err);
}

bool TableFile::Commit(std::string* err) {
  if (m_Fd >= 0 && !Flush(err))
    return false;
  if (m_Writer != nullptr && !m_Writer->Wait())
    return Fail("cannot write", err);
  if (m_Path.empty()) {
    m_Done = true;
    return true;
  }
  if (m_Fd >= 0) {
    const int fd = m_Fd;
    m_Fd = -1;
    if (close(fd) != 0)
      return Fail("cannot write", err);
  }
  if (m_Direct) {
    m_Done = true;
    return true;
  }
  SignalsHeld held;
  if (rename(m_Temp.c_str(), m_Target.c_str()) != 0)
    return Fail("cannot rename the temporary file to", err);
  m_Done = true;
  UnregisterTempFile(&m_Temp);
  return true;
}

std::string SafeFileName(const std::string& value) {
  std::string name;
  for (size_t i = 0; i < value.size(); ++i) {
    const auto c = static_cast<unsigned char>(value[i]);
    // A cut inside a multi-byte character would leave bytes that are not
    // UTF-8: stop before the character that would cross the limit.
    if (name.size() >= kMaxNameBytes ||
        (c >= 0xC0 && name.size() + (c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : 2) >
                          kMaxNameBytes))
      break;
    name += IsKept(c) ? static_cast<char>(c) : '_';
  }
  if (name.empty())
    return "_";
  if (name[0] == '.' || name[0] == '-')
    name[0] = '_';
  return name;
}

TableWriter::TableWriter(std::string header, std::string out, bool split)
    : m_Header(std::move(header)), m_Out(std::move(out)), m_Split(split) {}

bool TableWriter::Start(std::string* err) {
  if (m_Split) {
    if (m_Out.find("{}") == std::string::npos) {
      *err = "the output name '" + m_Out + "' holds no {} for the split value";
      return false;
    }
    return true;
  }
  Target target;
  target.file = std::make_unique<TableFile>(kSingleBuffer, true);
  m_Targets.push_back(std::move(target));
  TableFile* file = m_Targets.back().file.get();
  return file->Create(m_Out, err) &&
         file->Write(m_Header.data(), m_Header.size(), err);
}

bool TableWriter::Open(Target* target, std::string* err) {
  if (m_Open.size() >= kMaxOpen) {
    auto oldest = std::min_element(
        m_Open.begin(), m_Open.end(), [this](size_t a, size_t b) {
          return m_Targets[a].last_use < m_Targets[b].last_use;
        });
    if (!m_Targets[*oldest].file->Park(err))
      return false;
    m_Open.erase(oldest);
  }
  m_Open.push_back(static_cast<size_t>(target - m_Targets.data()));
  if (target->file != nullptr)
    return target->file->Resume(err);
  target->file = std::make_unique<TableFile>(kSplitBuffer, false);
  return target->file->Create(target->name, err) &&
         target->file->Write(m_Header.data(), m_Header.size(), err);
}

TableWriter::Target* TableWriter::Find(const char* key, size_t key_size,
                                       std::string* err) {
  m_Key.assign(key, key_size);
  const auto found = m_TargetOfValue.find(m_Key);
  if (found != m_TargetOfValue.end())
    return &m_Targets[found->second];

  std::string name = m_Out;
  const std::string part = SafeFileName(m_Key);
  for (size_t at = 0; (at = name.find("{}", at)) != std::string::npos;
       at += part.size())
    name.replace(at, 2, part);
  const auto [other, is_new] = m_ValueOfName.emplace(name, m_Key);
  if (!is_new) {
    *err = "the values '" + other->second + "' and '" + m_Key +
           "' both give the file name " + name;
    return nullptr;
  }
  m_TargetOfValue.emplace(m_Key, m_Targets.size());
  m_Targets.emplace_back();
  m_Targets.back().name = name;
  return &m_Targets.back();
}

bool TableWriter::Write(const char* key, size_t key_size, const char* record,
                        size_t size, std::string* err) {
  if (!m_Split)
    return m_Targets[0].file->Write(record, size, err);
  Target* target = Find(key, key_size, err);
  if (target == nullptr)
    return false;
  if ((target->file == nullptr || !target->file->is_open()) &&
      !Open(target, err))
    return false;
  target->last_use = ++m_Clock;
  return target->file->Write(record, size, err);
}

bool TableWriter::Finish(std::vector<std::string>* names, std::string* err) {
  for (Target& target : m_Targets) {
    if (!target.file->Commit(err))
      return false;
    if (m_Split)
      names->push_back(target.name);
  }
  return true;
}

}  // namespace formfill_table
