#include "own_files.h"

#include "guard.h"
#include "mutex.h"

#include <dirent.h>

#include <unordered_map>

namespace {

constexpr char kFolder[] = "/tmp";
constexpr char kListPrefix[] = "quillbrook.";
// Beginnings of the names of streams, of streams that are being cut, and of result documents.
constexpr const char *kFilePrefixes[] = {"quillbrook_0x", "quillbrook2_0x", "quillbrook_QBK-"};
// Of one process id at a time there is one list, unless containers share /tmp.
constexpr int kListsOfOnePid = 9;

enum State : char { kFree = 0, kInUse = 'u', kKept = 'k' };

struct Record {
  char state;
  char path[kOwnFileRecord - 1];
};
static_assert(sizeof(Record) == kOwnFileRecord);

constexpr size_t kNoPlace = SIZE_MAX;

Mutex list_lock;  // a leaf
int list_descriptor QUILLBROOK_GUARDED_BY(list_lock) = -1;
char list_path[64] QUILLBROOK_GUARDED_BY(list_lock);
std::unordered_map<std::string, size_t> places QUILLBROOK_GUARDED_BY(list_lock);
std::vector<size_t> free_places QUILLBROOK_GUARDED_BY(list_lock);
size_t place_count QUILLBROOK_GUARDED_BY(list_lock) = 0;

bool begins_with(const char *text, const char *beginning) {
  return strncmp(text, beginning, strlen(beginning)) == 0;
}

// Behind the prefix stands the number of a process, and perhaps one of its lists: a package that somebody keeps there
// is none.
bool is_list_name(const char *name) {
  if (!begins_with(name, kListPrefix)) {
    return false;
  }
  const char *number = name + sizeof(kListPrefix) - 1;
  return *number && number[strspn(number, "0123456789.")] == '\0';
}

bool is_file_name(const char *name) {
  return std::any_of(std::begin(kFilePrefixes), std::end(kFilePrefixes),
                     [name](const char *prefix) { return begins_with(name, prefix); });
}

bool is_ours(const struct stat &status) {
  return S_ISREG(status.st_mode) && status.st_uid == geteuid();
}

std::vector<std::string> paths_of(bool (*wanted)(const char *name)) {
  std::vector<std::string> paths;
  const std::unique_ptr<DIR, int (*)(DIR *)> folder(opendir(kFolder), closedir);
  while (const struct dirent *entry = folder ? readdir(folder.get()) : nullptr) {
    if (wanted(entry->d_name)) {
      paths.push_back(std::string(kFolder) + "/" + entry->d_name);
    }
  }
  return paths;
}

// The lock that says that the process lives. It belongs to the process alone, so what the PBX starts does not inherit
// it.
struct flock whole_file() {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return lock;
}

// False when another process holds it.
bool take_lock(int descriptor) {
  struct flock lock = whole_file();
  return fcntl(descriptor, F_SETLK, &lock) == 0;
}

// Creates and locks a list. Another process that loads in between takes it for one of a dead process and removes it,
// which shows in the links of the file. -1 when it cannot be had.
int create_list(const char *path) {
  const int descriptor = open(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (descriptor < 0) {
    return -1;
  }
  struct stat status;
  if (take_lock(descriptor) && fstat(descriptor, &status) == 0 && status.st_nlink > 0) {
    return descriptor;
  }
  close(descriptor);
  return -1;
}

void open_list() QUILLBROOK_REQUIRES(list_lock) {
  for (int attempt = 0; list_descriptor < 0 && attempt < kListsOfOnePid; ++attempt) {
    int length = snprintf(list_path, sizeof(list_path), "%s/%s%d", kFolder, kListPrefix, static_cast<int>(getpid()));
    if (attempt) {
      snprintf(list_path + length, sizeof(list_path) - static_cast<size_t>(length), ".%d", attempt);
    }
    list_descriptor = create_list(list_path);
  }
}

// False when it does not fit on the disk.
bool write_record(size_t number, State state, const std::string &path) QUILLBROOK_REQUIRES(list_lock) {
  Record record = {state, {}};
  path.copy(record.path, sizeof(record.path) - 1);
  const auto at = static_cast<off_t>(number * sizeof(record));
  return pwrite(list_descriptor, &record, sizeof(record), at) == static_cast<ssize_t>(sizeof(record));
}

void close_list() QUILLBROOK_REQUIRES(list_lock) {
  if (list_descriptor < 0) {
    return;
  }
  if (places.empty()) {
    quillbrook_remove_file(list_path);
  }
  close(list_descriptor);
  list_descriptor = -1;
  places.clear();
  free_places.clear();
  place_count = 0;
}

// A place for one more file. Nothing can fail when it becomes free again.
size_t take_place() QUILLBROOK_REQUIRES(list_lock) {
  free_places.reserve(place_count + 1);
  if (free_places.empty()) {
    return place_count++;
  }
  const size_t number = free_places.back();
  free_places.pop_back();
  return number;
}

// False when the file could not be put on the list.
bool claim(const std::string &path, bool keep) QUILLBROOK_REQUIRES(list_lock) {
  open_list();
  if (list_descriptor < 0) {
    return false;
  }
  auto found = places.find(path);
  if (found == places.end()) {
    found = places.emplace(path, kNoPlace).first;
  }
  if (found->second == kNoPlace) {
    found->second = take_place();
  }
  return write_record(found->second, keep ? kKept : kInUse, path);
}

void disclaim(const std::string &path) QUILLBROOK_REQUIRES(list_lock) {
  const auto found = places.find(path);
  if (found == places.end()) {
    return;
  }
  if (found->second != kNoPlace) {
    write_record(found->second, kFree, "");
    free_places.push_back(found->second);
  }
  places.erase(found);
  if (places.empty()) {
    close_list();
  }
}

// A list of another process, or of this one's past. A dead one is locked for as long as this looks at it, so that who
// has just made it and is about to lock it tries again.
class OtherList {
public:
  explicit OtherList(const std::string &path)
      : path_(path), descriptor_(open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)) {
    struct stat status;
    ours_ = descriptor_ >= 0 && fstat(descriptor_, &status) == 0 && is_ours(status);
    lives_ = ours_ && !take_lock(descriptor_);
  }
  ~OtherList() {
    if (descriptor_ >= 0) {
      close(descriptor_);
    }
  }
  OtherList(const OtherList &) = delete;
  OtherList &operator=(const OtherList &) = delete;

  bool is_dead() const { return ours_ && !lives_; }
  void remove() const { unlink(path_.c_str()); }

  // What must not be removed: the files in use of a process that lives, and all that are to be kept.
  std::vector<std::string> spared() const {
    std::vector<std::string> paths;
    Record record;
    for (off_t at = 0; ours_ && pread(descriptor_, &record, sizeof(record), at) == sizeof(record);
         at += sizeof(record)) {
      record.path[sizeof(record.path) - 1] = '\0';
      if (record.state == kKept || (record.state == kInUse && lives_)) {
        paths.emplace_back(record.path);
      }
    }
    return paths;
  }

private:
  std::string path_;
  int descriptor_;
  bool ours_, lives_;
};

bool remove_if_ours(const std::string &path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0 && is_ours(status) && unlink(path.c_str()) == 0;
}

// Puts what a dead process kept on the own list, as far as it is still there.
bool take_over(const std::vector<std::string> &kept) QUILLBROOK_REQUIRES(list_lock) {
  bool all = true;
  for (const std::string &path : kept) {
    if (quillbrook_file_exists(path.c_str())) {
      all = claim(path, true) && all;
    }
  }
  return all;
}

int remove_stale_files() {
  MutexLock held(list_lock);
  // In this order: whatever is found was on a list before it was made.
  const std::vector<std::string> found = paths_of(is_file_name);
  std::set<std::string> spared;
  for (const std::string &path : paths_of(is_list_name)) {
    const OtherList list(path);
    const std::vector<std::string> of_list = list.spared();
    spared.insert(of_list.begin(), of_list.end());
    if (list.is_dead() && take_over(of_list)) {
      list.remove();
    }
  }
  int removed = 0;
  for (const std::string &path : found) {
    removed += !spared.count(path) && remove_if_ours(path);
  }
  return removed;
}

void close_own_files() {
  MutexLock held(list_lock);
  for (auto place = places.begin(); place != places.end();) {
    place = quillbrook_file_exists(place->first.c_str()) ? std::next(place) : places.erase(place);
  }
  close_list();
}

}  // namespace

void quillbrook_claim_file(const char *path, bool keep) {
  guarded("quillbrook_claim_file", 0, [=] {
    MutexLock held(list_lock);
    claim(path, keep);
    return 0;
  });
}

void quillbrook_disclaim_file(const char *path) {
  guarded("quillbrook_disclaim_file", 0, [=] {
    MutexLock held(list_lock);
    disclaim(path);
    return 0;
  });
}

void quillbrook_remove_file(const char *path) {
  if (unlink(path) && errno != ENOENT) {
    ast_log(LOG_WARNING, "Cannot remove %s: %s\n", path, strerror(errno));
  }
}

bool quillbrook_file_is_claimed(const char *path) {
  return guarded("quillbrook_file_is_claimed", false, [=] {
    MutexLock held(list_lock);
    return places.count(path) > 0;
  });
}

bool quillbrook_file_exists(const char *path) {
  struct stat status;
  return lstat(path, &status) == 0;
}

int quillbrook_remove_stale_files() {
  return guarded("quillbrook_remove_stale_files", 0, remove_stale_files);
}

void quillbrook_close_own_files() {
  guarded("quillbrook_close_own_files", 0, [] {
    close_own_files();
    return 0;
  });
}
