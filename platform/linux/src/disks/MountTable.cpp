#include "disks/MountTable.h"

#include <libmount.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <utility>

namespace disks {

namespace {

template<auto function>
struct Call {
    template<typename T>
    void operator()(T* object) const noexcept {
        function(object);
    }
};
using Table = std::unique_ptr<libmnt_table, Call<mnt_unref_table>>;
using Iterator = std::unique_ptr<libmnt_iter, Call<mnt_free_iter>>;
using Stream = std::unique_ptr<FILE, Call<fclose>>;

constexpr std::size_t kReadSize = 64 * 1024;

std::optional<std::string> ReadWhole(const char* path) {
    const Stream stream(fopen(path, "re"));
    if (!stream)
        return std::nullopt;
    std::string text;
    std::size_t length = 0;
    do {
        const std::size_t start = text.size();
        text.resize(start + kReadSize);
        length = fread(text.data() + start, 1, kReadSize, stream.get());
        text.resize(start + length);
    } while (length == kReadSize);
    return ferror(stream.get()) == 0 ? std::optional(std::move(text)) : std::nullopt;
}

std::string Text(const char* text) {
    return text != nullptr ? text : "";
}

Mount MountOf(libmnt_fs* line) {
    return {mnt_fs_get_id(line),           mnt_fs_get_parent_id(line),
            mnt_fs_get_devno(line),        Text(mnt_fs_get_root(line)),
            Text(mnt_fs_get_target(line)), Text(mnt_fs_get_fstype(line)),
            Text(mnt_fs_get_srcpath(line))};
}

// Rejects the whole table: if only the malformed line were skipped, its mount would seem to be
// gone.
int RejectLine(libmnt_table*, const char*, int) {
    return -EINVAL;
}

} // namespace

std::optional<MountTable> ParseMountTable(std::string text) {
    // A complete table has at least the root and ends with a newline.
    if (text.empty() || text.back() != '\n')
        return std::nullopt;
    const Stream stream(fmemopen(text.data(), text.size(), "r"));
    const Table table(mnt_new_table());
    const Iterator iterator(mnt_new_iter(MNT_ITER_FORWARD));
    if (!stream || !table || !iterator)
        return std::nullopt;
    mnt_table_set_parser_errcb(table.get(), RejectLine);
    if (mnt_table_parse_stream(table.get(), stream.get(), "mountinfo") != 0)
        return std::nullopt;

    MountTable mounts;
    libmnt_fs* line = nullptr;
    while (mnt_table_next_fs(table.get(), iterator.get(), &line) == 0)
        mounts.push_back(MountOf(line));
    return mounts;
}

std::optional<MountTable> ReadMountTable(const char* file) {
    auto text = ReadWhole(file);
    return text ? ParseMountTable(std::move(*text)) : std::nullopt;
}

} // namespace disks
