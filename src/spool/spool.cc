// src/spool/spool.cc — see spool.h.
#include "spool/spool.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <vector>

#include "platform/logger.h"
#include "spool/spool_record.h"

namespace tessera::spool {

namespace {

// Sequence numbers are written to disk this many at a time: one small write per block, and a
// crash skips at most this many numbers, never reuses one.
constexpr uint64_t kSeqBlock = 1024;
constexpr const char* kSegmentSuffix = ".seg";

std::string errnoText() { return std::strerror(errno); }

bool writeAll(int fd, const char* data, size_t length) {
  while (length > 0) {
    ssize_t n = ::write(fd, data, length);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    length -= static_cast<size_t>(n);
  }
  return true;
}

// A number kept in a small file of its own, rewritten in place (one sector, one write).
bool storeNumber(int fd, uint64_t value, bool sync) {
  char text[24];
  const int n = std::snprintf(text, sizeof text, "%020" PRIu64 "\n", value);
  if (::pwrite(fd, text, static_cast<size_t>(n), 0) != n) return false;
  return !sync || ::fdatasync(fd) == 0;
}

uint64_t loadNumber(int fd) {
  char text[24] = {};
  if (::pread(fd, text, sizeof text - 1, 0) <= 0) return 0;
  return std::strtoull(text, nullptr, 10);
}

bool readFile(const std::string& path, std::vector<uint8_t>& out) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat st {};
  bool ok = ::fstat(fd, &st) == 0;
  if (ok) {
    out.resize(static_cast<size_t>(st.st_size));
    size_t got = 0;
    while (ok && got < out.size()) {
      ssize_t n = ::read(fd, out.data() + got, out.size() - got);
      if (n < 0 && errno == EINTR) continue;
      ok = n > 0;
      if (ok) got += static_cast<size_t>(n);
    }
  }
  ::close(fd);
  return ok;
}

}  // namespace

Spool::~Spool() { close(); }

bool Spool::open(const std::string& dir, uint64_t maxBytes, int64_t now) {
  std::lock_guard g(lock_);
  closeLocked();
  lastSync_ = now;
  if (!openLocked(dir, maxBytes)) {
    closeLocked();
    return false;
  }
  open_ = true;
  return true;
}

bool Spool::openLocked(const std::string& dir, uint64_t maxBytes) {
  dir_ = dir;
  maxBytes_ = maxBytes;
  if (::mkdir(dir.c_str(), 0750) != 0 && errno != EEXIST) {
    Logger::log(LogLevel::kError, "Spool: cannot create %s: %s\n", dir.c_str(), errnoText().c_str());
    return false;
  }
  sequenceFd_ = ::open((dir + "/sequence").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640);
  confirmedFd_ = ::open((dir + "/confirmed").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640);
  if (sequenceFd_ < 0 || confirmedFd_ < 0) {
    Logger::log(LogLevel::kError, "Spool: cannot write in %s: %s\n", dir.c_str(), errnoText().c_str());
    return false;
  }
  const uint64_t confirmed = loadNumber(confirmedFd_);
  nextSeq_ = std::max<uint64_t>({loadNumber(sequenceFd_), confirmed + 1, 1});

  std::vector<std::string> names;
  if (DIR* d = ::opendir(dir.c_str())) {
    while (const dirent* e = ::readdir(d)) {
      const std::string name = e->d_name;
      if (name.size() > 4 && name.compare(name.size() - 4, 4, kSegmentSuffix) == 0) {
        names.push_back(name);
      }
    }
    ::closedir(d);
  }
  std::sort(names.begin(), names.end());
  for (const auto& name : names) {
    if (!loadSegment(name, confirmed)) return false;
  }
  for (const auto& e : entries_) {
    recoveredReads_ += e.reads;
    nextSeq_ = std::max(nextSeq_, e.seq + 1);
  }
  reservedSeq_ = nextSeq_;
  if (!entries_.empty()) {
    Logger::log(LogLevel::kInfo, "Spool: %zu batches with %" PRIu64 " reads from an earlier run in %s\n",
                entries_.size(), recoveredReads_, dir.c_str());
  }
  return true;
}

bool Spool::loadSegment(const std::string& name, uint64_t confirmed) {
  const std::string path = dir_ + "/" + name;
  std::vector<uint8_t> bytes;
  if (!readFile(path, bytes)) {
    Logger::log(LogLevel::kError, "Spool: cannot read %s: %s\n", path.c_str(), errnoText().c_str());
    return false;
  }
  std::vector<RecordInfo> records;
  const size_t intact = scanSegment(bytes, records);
  if (intact < bytes.size()) {
    Logger::log(LogLevel::kError, "Spool: %s is damaged at offset %zu; the batches before it are kept\n",
                path.c_str(), intact);
    if (::truncate(path.c_str(), static_cast<off_t>(intact)) != 0) {
      Logger::log(LogLevel::kError, "Spool: cannot cut %s: %s\n", path.c_str(), errnoText().c_str());
      return false;
    }
  }
  Segment seg;
  seg.id = nextSegmentId_++;
  seg.path = path;
  seg.bytes = intact;
  for (const auto& r : records) {
    if (r.seq <= confirmed) continue;  // delivered before the earlier run ended
    Entry e;
    e.segment = seg.id;
    e.offset = r.offset;
    e.length = r.length;
    e.seq = r.seq;
    e.written = r.written;
    e.reads = r.reads;
    entries_.push_back(e);
    ++seg.live;
  }
  if (seg.live == 0) {
    ::unlink(path.c_str());
    return true;
  }
  bytes_ += seg.bytes;
  segments_.push_back(std::move(seg));
  return true;
}

void Spool::close() {
  std::lock_guard g(lock_);
  closeLocked();
}

void Spool::closeLocked() {
  if (writeFd_ >= 0) {
    (void)::fdatasync(writeFd_);
    ::close(writeFd_);
  }
  if (sequenceFd_ >= 0) ::close(sequenceFd_);
  if (confirmedFd_ >= 0) {
    (void)::fdatasync(confirmedFd_);
    ::close(confirmedFd_);
  }
  writeFd_ = sequenceFd_ = confirmedFd_ = -1;
  segments_.clear();
  entries_.clear();
  bytes_ = 0;
  recoveredReads_ = 0;
  open_ = false;
}

bool Spool::isOpen() const {
  std::lock_guard g(lock_);
  return open_;
}

bool Spool::empty() const {
  std::lock_guard g(lock_);
  return entries_.empty();
}

uint64_t Spool::recoveredReads() const {
  std::lock_guard g(lock_);
  return recoveredReads_;
}

uint64_t Spool::nextSeq() {
  std::lock_guard g(lock_);
  if (nextSeq_ >= reservedSeq_ && sequenceFd_ >= 0) {
    if (storeNumber(sequenceFd_, nextSeq_ + kSeqBlock, true)) {
      reservedSeq_ = nextSeq_ + kSeqBlock;
    } else {
      Logger::log(LogLevel::kError, "Spool: cannot reserve batch numbers in %s: %s\n", dir_.c_str(),
                  errnoText().c_str());
    }
  }
  return nextSeq_++;
}

bool Spool::startSegment(uint64_t seq) {
  if (writeFd_ >= 0) {
    (void)::fdatasync(writeFd_);
    ::close(writeFd_);
    writeFd_ = -1;
  }
  char name[40];
  std::snprintf(name, sizeof name, "/%020" PRIu64 "%s", seq, kSegmentSuffix);
  Segment seg;
  seg.id = nextSegmentId_++;
  seg.path = dir_ + name;
  writeFd_ = ::open(seg.path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640);
  if (writeFd_ < 0) return false;
  segments_.push_back(std::move(seg));
  return true;
}

bool Spool::append(uint64_t seq, uint32_t reads, std::string_view text, int64_t now) {
  std::lock_guard g(lock_);
  if (!open_) return false;
  std::string record;
  record.reserve(kRecordHeaderSize + text.size());
  encodeRecord(seq, static_cast<uint64_t>(now), reads, text, record);
  const bool rotate = writeFd_ < 0 || segments_.empty() || segments_.back().bytes >= kSegmentBytes;
  bool ok = !rotate || startSegment(seq);
  if (ok) {
    Segment& seg = segments_.back();
    ok = writeAll(writeFd_, record.data(), record.size());
    if (!ok) {
      const int err = errno;
      // A partial record must not stay behind: later appends would follow damage. Should even
      // the cut fail, the next open stops reading the file at the damage, with a log line.
      if (::ftruncate(writeFd_, static_cast<off_t>(seg.bytes)) != 0) {
        Logger::log(LogLevel::kError, "Spool: cannot cut %s: %s\n", seg.path.c_str(), errnoText().c_str());
      }
      errno = err;
    } else {
      Entry e;
      e.segment = seg.id;
      e.offset = seg.bytes;
      e.length = static_cast<uint32_t>(text.size());
      e.seq = seq;
      e.written = static_cast<uint64_t>(now);
      e.reads = reads;
      entries_.push_back(e);
      ++seg.live;
      seg.bytes += record.size();
      bytes_ += record.size();
      dirty_ = true;
    }
  }
  if (!ok) {
    if (!refusing_) {
      Logger::log(LogLevel::kError, "Spool: cannot write to %s: %s; batches wait in memory\n", dir_.c_str(),
                  errnoText().c_str());
    }
    refusing_ = true;
    return false;
  }
  if (refusing_) Logger::log(LogLevel::kInfo, "Spool: writing to %s again\n", dir_.c_str());
  refusing_ = false;
  bool dropped = false;
  while (bytes_ > maxBytes_ && segments_.size() > 1) {
    dropOldestSegmentLocked();
    dropped = true;
  }
  if (dropped && !dropping_) {
    Logger::log(LogLevel::kError, "Spool: %s is full (%" PRIu64 " bytes): dropping the oldest batches\n",
                dir_.c_str(), maxBytes_);
  }
  dropping_ = dropped || (dropping_ && bytes_ + kSegmentBytes > maxBytes_);
  return true;
}

void Spool::dropOldestSegmentLocked() {
  const Segment& seg = segments_.front();
  // The batch being delivered stays: its text is in the caller's hands, and counting it as
  // dropped would count it twice once it arrives.
  auto it = entries_.begin();
  if (it != entries_.end() && it->seq == checkedOut_ && it->segment == seg.id) {
    it->segment = 0;
    ++it;
  }
  while (it != entries_.end() && it->segment == seg.id) {
    droppedReads_ += it->reads;
    droppedSinceTaken_ += it->reads;
    it = entries_.erase(it);
  }
  ::unlink(seg.path.c_str());
  bytes_ -= seg.bytes;
  segments_.pop_front();
}

Spool::Segment* Spool::segmentById(uint64_t id) {
  for (auto& s : segments_) {
    if (s.id == id) return &s;
  }
  return nullptr;
}

bool Spool::front(Batch& out) {
  std::lock_guard g(lock_);
  while (!entries_.empty()) {
    const Entry e = entries_.front();
    const Segment* seg = segmentById(e.segment);
    out.seq = e.seq;
    out.reads = e.reads;
    out.text.resize(e.length);
    bool ok = false;
    if (seg != nullptr) {
      const int fd = ::open(seg->path.c_str(), O_RDONLY | O_CLOEXEC);
      if (fd >= 0) {
        ok = ::pread(fd, out.text.data(), e.length,
                     static_cast<off_t>(e.offset + kRecordHeaderSize)) ==
             static_cast<ssize_t>(e.length);
        ::close(fd);
      }
    }
    if (ok) {
      checkedOut_ = e.seq;
      return true;
    }
    Logger::log(LogLevel::kError, "Spool: batch %" PRIu64 " cannot be read back: dropped\n", e.seq);
    droppedReads_ += e.reads;
    droppedSinceTaken_ += e.reads;
    popFrontLocked();
  }
  return false;
}

void Spool::popFrontLocked() {
  const Entry e = entries_.front();
  entries_.pop_front();
  Segment* seg = segmentById(e.segment);
  if (seg == nullptr) return;
  --seg->live;
  const bool writing = writeFd_ >= 0 && &segments_.back() == seg;
  if (seg->live == 0 && seg == &segments_.front()) {
    if (writing) {
      ::close(writeFd_);
      writeFd_ = -1;
    }
    ::unlink(seg->path.c_str());
    bytes_ -= seg->bytes;
    segments_.pop_front();
  }
}

void Spool::persistConfirmedLocked(uint64_t seq) {
  // No sync: losing it in a power cut only means delivering a few batches a second time.
  if (confirmedFd_ >= 0) (void)storeNumber(confirmedFd_, seq, false);
}

bool Spool::confirm(uint64_t seq) {
  std::lock_guard g(lock_);
  if (entries_.empty() || entries_.front().seq != seq) return false;
  popFrontLocked();
  persistConfirmedLocked(seq);
  return true;
}

bool Spool::reject(uint64_t seq, std::string_view text) {
  std::lock_guard g(lock_);
  if (entries_.empty() || entries_.front().seq != seq) return false;
  keepRejectedLocked(seq, text);
  popFrontLocked();
  persistConfirmedLocked(seq);
  return true;
}

void Spool::keepRejected(uint64_t seq, std::string_view text) {
  std::lock_guard g(lock_);
  keepRejectedLocked(seq, text);
}

void Spool::keepRejectedLocked(uint64_t seq, std::string_view text) {
  const std::string folder = dir_ + "/rejected";
  (void)::mkdir(folder.c_str(), 0750);
  char name[40];
  std::snprintf(name, sizeof name, "/%020" PRIu64 ".json", seq);
  const std::string path = folder + name;
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
  const bool kept = fd >= 0 && writeAll(fd, text.data(), text.size());
  if (fd >= 0) ::close(fd);
  Logger::log(LogLevel::kError, "Spool: the server refused batch %" PRIu64 " for good; %s %s\n", seq,
              kept ? "kept as" : "could not be kept as", path.c_str());
  ++rejectedBatches_;
}

uint64_t Spool::takeDroppedReads() {
  std::lock_guard g(lock_);
  const uint64_t n = droppedSinceTaken_;
  droppedSinceTaken_ = 0;
  return n;
}

void Spool::sync() {
  std::lock_guard g(lock_);
  if (writeFd_ >= 0) (void)::fdatasync(writeFd_);
  dirty_ = false;
}

void Spool::syncIfDue(int64_t now) {
  std::lock_guard g(lock_);
  if (!dirty_ || now - lastSync_ < 1 || writeFd_ < 0) return;
  (void)::fdatasync(writeFd_);
  dirty_ = false;
  lastSync_ = now;
}

SpoolCounts Spool::counts(int64_t now) const {
  std::lock_guard g(lock_);
  SpoolCounts c;
  c.bytes = bytes_;
  c.batches = entries_.size();
  c.droppedReads = droppedReads_;
  c.rejectedBatches = rejectedBatches_;
  if (!entries_.empty()) {
    c.oldestAgeSeconds = std::max<int64_t>(0, now - static_cast<int64_t>(entries_.front().written));
  }
  return c;
}

}  // namespace tessera::spool
