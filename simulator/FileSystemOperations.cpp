#include "simulator/FileSystemOperations.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <system_error>
#include <utility>

namespace simulator {

namespace {

constexpr const char* kRootInfoName = ".changer_info.plist";
constexpr const char* kMediaInfoName = ".media_info.plist";
constexpr fuse_ino_t kRootInfoNumber = 2;
constexpr EntryIndex kInfoEntry = 0xFFFFFFFF;
constexpr double kCacheSeconds = 3600.0;

fuse_ino_t MakeNumber(const Volume& volume, EntryIndex entry) {
    return fuse_ino_t{volume.id} << 32 | entry;
}

FileSystemOperations& OperationsOf(fuse_req_t request) {
    return *static_cast<FileSystemOperations*>(fuse_req_userdata(request));
}

// Calls a handler and replies to its exceptions, which must not pass through libfuse, a C library.
template<typename Handler>
void Guard(fuse_req_t request, const Handler& handler) noexcept {
    try {
        handler(OperationsOf(request));
    } catch (const std::system_error& error) {
        fuse_reply_err(request, error.code().value());
    } catch (const std::exception&) {
        fuse_reply_err(request, EIO);
    }
}

} // namespace

const fuse_lowlevel_ops& FuseOperations() {
    static const fuse_lowlevel_ops operations = [] {
        fuse_lowlevel_ops table = {};
        table.init = [](void*, fuse_conn_info* connection) {
            // The session's descriptor is non-blocking; receiving by splice() would block.
            connection->want &= ~static_cast<unsigned>(FUSE_CAP_SPLICE_READ);
        };
        table.lookup = [](fuse_req_t request, fuse_ino_t parent, const char* name) {
            Guard(request, [&](auto& self) { self.Lookup(request, parent, name); });
        };
        table.getattr = [](fuse_req_t request, fuse_ino_t number, fuse_file_info*) {
            Guard(request, [&](auto& self) { self.ReadAttributes(request, number); });
        };
        table.readlink = [](fuse_req_t request, fuse_ino_t number) {
            Guard(request, [&](auto& self) { self.ReadLink(request, number); });
        };
        table.opendir = [](fuse_req_t request, fuse_ino_t number, fuse_file_info* file) {
            Guard(request, [&](auto& self) { self.OpenFolder(request, number, *file); });
        };
        table.readdir = [](fuse_req_t request, fuse_ino_t, size_t size, off_t offset,
                           fuse_file_info* file) {
            Guard(request, [&](auto& self) { self.ReadFolder(request, size, offset, *file); });
        };
        table.releasedir = [](fuse_req_t request, fuse_ino_t, fuse_file_info* file) {
            Guard(request, [&](auto& self) { self.CloseFolder(request, *file); });
        };
        table.open = [](fuse_req_t request, fuse_ino_t number, fuse_file_info* file) {
            Guard(request, [&](auto& self) { self.OpenFile(request, number, *file); });
        };
        table.read = [](fuse_req_t request, fuse_ino_t number, size_t size, off_t offset,
                        fuse_file_info*) {
            Guard(request, [&](auto& self) { self.ReadFile(request, number, size, offset); });
        };
        return table;
    }();
    return operations;
}

// ---- Requests with an immediate reply ----

void FileSystemOperations::Lookup(fuse_req_t request, fuse_ino_t parent, const char* name) {
    const auto directory = Find(parent);
    const auto found = directory ? FindChild(*directory, name) : std::nullopt;
    if (!found) {
        fuse_reply_err(request, directory ? ENOENT : ESTALE);
        return;
    }
    fuse_entry_param entry = {};
    entry.ino = found->number;
    entry.attr = Describe(*found);
    entry.attr_timeout = CacheTimeout(*found);
    // Media roots appear and disappear, so the kernel may cache only names below a media root.
    entry.entry_timeout = directory->IsRoot() ? 0.0 : CacheTimeout(*found);
    fuse_reply_entry(request, &entry);
}

void FileSystemOperations::ReadAttributes(fuse_req_t request, fuse_ino_t number) {
    const auto inode = Find(number);
    if (!inode) {
        fuse_reply_err(request, ESTALE);
        return;
    }
    const struct stat attributes = Describe(*inode);
    fuse_reply_attr(request, &attributes, CacheTimeout(*inode));
}

void FileSystemOperations::ReadLink(fuse_req_t request, fuse_ino_t number) {
    const auto inode = Find(number);
    if (!inode || !inode->volume || inode->isInfoFile) {
        fuse_reply_err(request, inode ? EINVAL : ESTALE);
        return;
    }
    fuse_reply_readlink(request, inode->volume->tree->Entry(inode->entry).linkTarget.c_str());
}

void FileSystemOperations::ReadFolder(fuse_req_t request, size_t size, off_t offset,
                                      const fuse_file_info& file) {
    const auto& items = FindOpen(file).items;
    std::vector<char> buffer(size);
    std::size_t used = 0;
    for (auto index = static_cast<std::size_t>(offset); index < items.size(); ++index) {
        struct stat attributes = {};
        attributes.st_ino = items[index].number;
        attributes.st_mode = items[index].mode;
        const std::string name(items[index].name);
        const std::size_t needed =
            fuse_add_direntry(request, buffer.data() + used, size - used, name.c_str(), &attributes,
                              static_cast<off_t>(index + 1));
        if (needed > size - used)
            break;
        used += needed;
    }
    fuse_reply_buf(request, buffer.data(), used);
}

void FileSystemOperations::ReadFile(fuse_req_t request, fuse_ino_t number, size_t size,
                                    off_t offset) {
    const auto inode = Find(number);
    if (!inode) {
        fuse_reply_err(request, ESTALE);
        return;
    }
    const auto begin = static_cast<std::size_t>(offset);
    std::string content;
    if (!inode->isInfoFile)
        content = inode->volume->tree->Read(inode->entry, begin, size);
    else if (const std::string whole = MakeInfoFile(*inode); begin < whole.size())
        content = whole.substr(begin, size);
    fuse_reply_buf(request, content.data(), content.size());
}

// ---- Requests that may wait for the disc ----

void FileSystemOperations::OpenFolder(fuse_req_t request, fuse_ino_t number,
                                      const fuse_file_info& file) {
    auto inode = Find(number);
    if (!inode) {
        fuse_reply_err(request, ESTALE);
        return;
    }
    if (inode->IsRoot()) {
        events_.Report("root-listing", Fields().AddChanger(changer_.Guid()));
        ReplyOpenFolder(request, file, ListRoot());
        return;
    }
    fuse_file_info answer = file;
    answer.cache_readdir = options_.kernelCache;
    answer.keep_cache = options_.kernelCache;
    changer_.List(inode->volume->id, inode->entry, AnswerWhenReady(request, [=, this] {
                      ReplyOpenFolder(request, answer, ListVolume(*inode));
                  }));
}

void FileSystemOperations::ReplyOpenFolder(fuse_req_t request, fuse_file_info file,
                                           OpenDirectory directory) {
    {
        const std::lock_guard guard(lock_);
        file.fh = ++lastHandle_;
        open_.emplace(file.fh, std::move(directory));
    }
    if (fuse_reply_open(request, &file) != 0) { // the caller was killed; no release will follow
        const std::lock_guard guard(lock_);
        open_.erase(file.fh);
    }
}

OpenDirectory& FileSystemOperations::FindOpen(const fuse_file_info& file) {
    const std::lock_guard guard(lock_);
    return open_.at(file.fh);
}

void FileSystemOperations::CloseFolder(fuse_req_t request, const fuse_file_info& file) {
    {
        const std::lock_guard guard(lock_);
        open_.erase(file.fh);
    }
    fuse_reply_err(request, 0);
}

void FileSystemOperations::OpenFile(fuse_req_t request, fuse_ino_t number,
                                    const fuse_file_info& file) {
    const auto inode = Find(number);
    if (!inode || (file.flags & O_ACCMODE) != O_RDONLY) {
        fuse_reply_err(request, inode ? EROFS : ESTALE);
        return;
    }
    fuse_file_info answer = file;
    answer.direct_io = !options_.kernelCache;
    if (inode->isInfoFile) {
        if (!inode->volume)
            events_.Report("info-open", Fields().AddChanger(changer_.Guid()));
        fuse_reply_open(request, &answer);
        return;
    }
    changer_.Open(inode->volume->id, inode->entry,
                  AnswerWhenReady(request, [=] { fuse_reply_open(request, &answer); }));
}

Changer::Callback FileSystemOperations::AnswerWhenReady(fuse_req_t request,
                                                        std::function<void()> answer) {
    const std::lock_guard guard(lock_);
    ++waiting_;
    return [=, this, answer = std::move(answer)](int errorNumber) {
        if (errorNumber != 0)
            fuse_reply_err(request, errorNumber);
        else
            answer();
        const std::lock_guard inner(lock_);
        --waiting_;
        answered_.notify_all();
    };
}

void FileSystemOperations::WaitUntilAnswered() {
    std::unique_lock guard(lock_);
    answered_.wait(guard, [this] { return waiting_ == 0; });
}

// ---- Inodes ----

std::optional<Inode> FileSystemOperations::Find(fuse_ino_t number) const {
    if (number == FUSE_ROOT_ID || number == kRootInfoNumber)
        return Inode{number, {}, 0, number == kRootInfoNumber};
    const auto entry = static_cast<EntryIndex>(number);
    auto volume = changer_.FindVolume(static_cast<std::uint32_t>(number >> 32));
    if (!volume)
        return {};
    return Inode{number, std::move(volume), entry, entry == kInfoEntry};
}

std::optional<Inode> FileSystemOperations::FindChild(const Inode& parent,
                                                     std::string_view name) const {
    if (parent.IsRoot())
        return FindInRoot(name);
    const Volume& volume = *parent.volume;
    if (parent.entry == 0 && name == kMediaInfoName)
        return Inode{MakeNumber(volume, kInfoEntry), parent.volume, kInfoEntry, true};
    const auto entry = volume.tree->FindChild(parent.entry, name);
    if (!entry)
        return {};
    return Inode{MakeNumber(volume, *entry), parent.volume, *entry, false};
}

std::optional<Inode> FileSystemOperations::FindInRoot(std::string_view name) const {
    if (name == kRootInfoName)
        return Find(kRootInfoNumber);
    for (const auto& volume : changer_.MediaRoots())
        if (volume->name == name)
            return Inode{MakeNumber(*volume, 0), volume, 0, false};
    return {};
}

struct stat FileSystemOperations::Describe(const Inode& inode) const {
    struct stat attributes = {};
    attributes.st_ino = inode.number;
    attributes.st_nlink = 1;
    attributes.st_uid = getuid();
    attributes.st_gid = getgid();
    if (inode.isInfoFile) {
        attributes.st_mode = S_IFREG | 0444;
        attributes.st_size = static_cast<off_t>(MakeInfoFile(inode).size());
    } else if (inode.IsRoot()) {
        attributes.st_mode = S_IFDIR | 0555;
    } else {
        const TreeEntry& entry = inode.volume->tree->Entry(inode.entry);
        attributes.st_mode = entry.mode;
        attributes.st_size = static_cast<off_t>(entry.size);
    }
    return attributes;
}

double FileSystemOperations::CacheTimeout(const Inode& inode) const {
    return options_.kernelCache && inode.volume ? kCacheSeconds : 0.0;
}

std::string FileSystemOperations::MakeInfoFile(const Inode& inode) const {
    Value info = Value::MakeDictionary();
    info.Set("Changer GUID", changer_.Guid());
    if (inode.volume) {
        info.Set("Storage Element Index", static_cast<std::int16_t>(inode.volume->slot))
            .Set("Partition Id", inode.volume->partitionId)
            .Set("Writable", false);
    }
    return options_.binaryInfo ? info.ToBinary() : info.ToXml();
}

// ---- Listings ----

OpenDirectory FileSystemOperations::ListRoot() const {
    OpenDirectory directory;
    directory.items = {{".", FUSE_ROOT_ID, S_IFDIR},
                       {"..", FUSE_ROOT_ID, S_IFDIR},
                       {kRootInfoName, kRootInfoNumber, S_IFREG}};
    directory.keepsNames = changer_.MediaRoots();
    for (const auto& volume : directory.keepsNames)
        directory.items.push_back({volume->name, MakeNumber(*volume, 0), S_IFDIR});
    return directory;
}

OpenDirectory FileSystemOperations::ListVolume(const Inode& inode) {
    const Volume& volume = *inode.volume;
    const TreeEntry& folder = volume.tree->Entry(inode.entry);
    OpenDirectory directory;
    directory.keepsNames = {inode.volume};
    directory.items = {
        {".", inode.number, S_IFDIR},
        {"..", inode.entry == 0 ? FUSE_ROOT_ID : MakeNumber(volume, folder.parent), S_IFDIR}};
    if (inode.entry == 0)
        directory.items.push_back({kMediaInfoName, MakeNumber(volume, kInfoEntry), S_IFREG});
    EntryIndex index = folder.firstChild;
    for (const TreeEntry& child : volume.tree->Children(inode.entry))
        directory.items.push_back({child.name, MakeNumber(volume, index++), child.mode});
    return directory;
}

} // namespace simulator
