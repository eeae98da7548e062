// SPDX-License-Identifier: Apache-2.0
// Application selection (EMV Book 1, 12): through the card's directory, or by an AID.
#include "card/selection.h"

#include "card/tags.h"
#include "card/tlv.h"

#include "vorn/card.h"
#include "vorn/convert.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace vorn {
namespace {

constexpr std::uint8_t kByName = 0x04;
constexpr std::uint8_t kFirst = 0x00;
constexpr std::uint8_t kNext = 0x02;
constexpr unsigned kSuccess = 0x0000;
constexpr unsigned kBlocked = 0x6283;
constexpr int kRecordsMax = 254; // record 255 is never read

// The response to SELECT, zeros behind it.
struct Fci {
    std::uint8_t bytes[VORN_RESPONSE_MAX + 1] = {};
    std::uint8_t size = 0;

    ByteView view() const { return ByteView(bytes, size); }
};

unsigned selectByName(ByteView name, std::uint8_t occurrence, Fci& fci)
{
    fci = Fci{};
    return vrdk_SelectFile(kByName, occurrence, name.data(), static_cast<std::uint8_t>(name.size()), fci.bytes,
                           &fci.size);
}

// ---------------------------------------------------------------- the directory

struct DirectoryRecord {
    DirectoryRecord* next;
    std::uint8_t bytes[VORN_RESPONSE_MAX + 1];
};

// The records of one directory, in order. All are searched for entries by the length of the one that was read last
// (compatibility: "Every directory record is searched over the last one's length").
class DirectoryRecords {
public:
    explicit DirectoryRecords(std::uint8_t shortFileId)
    {
        DirectoryRecord** end = &first_;
        for (int number = 1; number <= kRecordsMax; ++number) {
            auto* record = static_cast<DirectoryRecord*>(std::calloc(1, sizeof(DirectoryRecord)));
            std::uint8_t size = 0;
            if (record == nullptr ||
                vrdk_ReadRecord(static_cast<std::uint8_t>(number), shortFileId, record->bytes, &size) != kSuccess) {
                std::free(record);
                break;
            }
            searchedSize_ = size;
            *end = record;
            end = &record->next;
        }
    }

    ~DirectoryRecords()
    {
        while (first_ != nullptr) {
            DirectoryRecord* next = first_->next;
            std::free(first_);
            first_ = next;
        }
    }

    DirectoryRecords(const DirectoryRecords&) = delete;
    DirectoryRecords& operator=(const DirectoryRecords&) = delete;

    template <class Use>
    void forEach(Use use) const
    {
        for (const DirectoryRecord* record = first_; record != nullptr; record = record->next) {
            use(ByteView(record->bytes, sizeof record->bytes), searchedSize_);
        }
    }

private:
    DirectoryRecord* first_ = nullptr;
    std::size_t searchedSize_ = 0;
};

// What one selection may still read.
struct Allowance {
    int directories = VORN_DIRECTORIES_MAX;
    int repeats = VORN_DIRECTORY_REPEATS_MAX;
};

// A directory that is being read, inside those that named it. A card could otherwise name directories for ever.
struct Nesting {
    ByteView name;
    const Nesting* outer;
    Allowance& left;

    bool admits(ByteView inner) const
    {
        int depth = 1;
        bool repeated = false;
        for (const Nesting* directory = this; directory != nullptr; directory = directory->outer) {
            ++depth;
            repeated = repeated || directory->name == inner;
        }
        if (depth > VORN_DIRECTORY_DEPTH_MAX || left.directories == 0 || (repeated && left.repeats == 0)) {
            return false;
        }
        --left.directories;
        left.repeats -= repeated ? 1 : 0;
        return true;
    }
};

int readNamedDirectory(ByteView name, alist& head, const Nesting& nesting);

// Fills a list from one directory's entries.
class DirectoryReader {
public:
    DirectoryReader(alist& head, const Nesting& nesting) : current_(&head), nesting_(nesting) {}

    int read(ByteView fci)
    {
        const ByteView sfi = findObject(tag::kDirectorySfi, fci);
        if (sfi.empty() || sfi[1] != 1) {
            return 0;
        }
        const DirectoryRecords records(sfi[2]);
        records.forEach([this](ByteView record, std::size_t searched) { readRecord(record, searched); });
        dropBehindCurrent();
        return count_;
    }

private:
    // Entries are found within the searched size (none: up to a zero), and taken whole from the record. The template's
    // length is one byte here, whatever its form; the next one is sought behind its value.
    void readRecord(ByteView record, std::size_t searched)
    {
        constexpr std::size_t kHeader = 2;
        const TlvBuffer all = searched == 0 ? zeroEndedTlv(record) : boundedTlv(record.first(searched));
        for (TlvBuffer rest = all;;) {
            const ByteView found = findObject(tag::kApplicationTemplate.view(), rest);
            if (found.empty()) {
                return;
            }
            const ByteView entry = record.from(static_cast<std::size_t>(found.data() - record.data()));
            if (entry[1] != 0) {
                readEntry(entry.from(kHeader).first(entry[1]));
            }
            rest.bytes = found.from(kHeader + entry[1]);
        }
    }

    void readEntry(ByteView inner)
    {
        const ByteView name = valueOfByteLength(inner);
        if (name.empty()) {
            return;
        }
        if (inner.first(1) == tag::kAid.view()) {
            addApplication(name, inner);
        } else if (inner.first(1) == tag::kDdfName.view() && nesting_.admits(name)) {
            // The nested directory fills its records in behind the current one, which stays where it is: entries
            // that follow here write over them.
            count_ += readNamedDirectory(name, *current_, {name, &nesting_, nesting_.left});
        }
    }

    // An entry without a priority is counted, but the next one takes its record.
    void addApplication(ByteView aid, ByteView inner)
    {
        const ByteView kept = aid.first(sizeof current_->aid);
        std::memcpy(current_->aid, kept.data(), kept.size());
        current_->aidLength = static_cast<unsigned char>(kept.size());
        ++count_;
        const ByteView priority = findObject(tag::kPriority, inner);
        if (priority.empty() || priority[1] == 0) {
            current_->priority = 0;
            return;
        }
        current_->priority = priority[2];
        advance();
    }

    void advance()
    {
        auto* next = static_cast<alist*>(std::calloc(1, sizeof(alist)));
        if (next == nullptr) {
            return; // the record that is there is used again
        }
        dropBehindCurrent();
        current_->next = next;
        current_ = next;
    }

    void dropBehindCurrent() { freeCandidates(*current_); }

    alist* current_;
    const Nesting& nesting_;
    int count_ = 0;
};

int readNamedDirectory(ByteView name, alist& head, const Nesting& nesting)
{
    Fci fci;
    if (selectByName(name, kFirst, fci) != kSuccess) {
        return 0;
    }
    return DirectoryReader(head, nesting).read(fci.view());
}

// ---------------------------------------------------------------- by AID

// Stores a copy of the FCI. Without memory the record stays empty.
void keepFci(flist& record, const Fci& fci)
{
    record.fci = static_cast<unsigned char*>(std::malloc(fci.size == 0 ? 1 : fci.size));
    record.fciLength = record.fci == nullptr ? 0 : fci.size;
    ByteView(fci.bytes, record.fciLength).copyTo(record.fci);
}

class PrefixMatches {
public:
    explicit PrefixMatches(flist& head) : current_(&head) {}

    // False when no more can be kept.
    bool add(const Fci& fci)
    {
        auto* next = static_cast<flist*>(std::calloc(1, sizeof(flist)));
        if (next == nullptr) {
            return false;
        }
        keepFci(*current_, fci);
        current_->next = next;
        current_ = next;
        return ++count_ < VORN_AID_CANDIDATES_MAX;
    }

    int count() const { return count_; }

private:
    flist* current_;
    int count_ = 0;
};

// Makes the first application found current again, by its own name. The result does not matter.
void selectFirstFound(const flist& head)
{
    TagValue name = readTag(tag::kDfName, ByteView(head.fci, head.fciLength));
    if (name.bytes[0] == 0x00) {
        name.bytes[0] = 0xA0;
    }
    Fci ignored;
    selectByName(name.view(), kFirst, ignored);
}

int selectByPrefix(ByteView aid, unsigned status, const Fci& first, flist& head)
{
    PrefixMatches matches(head);
    bool room = status != kSuccess || matches.add(first);
    while (room && (status == kSuccess || status == kBlocked)) {
        Fci fci;
        status = selectByName(aid, kNext, fci);
        if (status == kSuccess) {
            room = matches.add(fci);
        }
    }
    selectFirstFound(head);
    return matches.count();
}

} // namespace

void freeCandidates(alist& head)
{
    while (head.next != nullptr) {
        alist* next = head.next;
        head.next = next->next;
        std::free(next);
    }
}

void freeCandidates(flist& head)
{
    std::free(head.fci);
    head.fci = nullptr;
    while (head.next != nullptr) {
        flist* next = head.next;
        head.next = next->next;
        std::free(next->fci);
        std::free(next);
    }
}

} // namespace vorn

using namespace vorn;

extern "C" {

int vrdk_PseAppSelect(const unsigned char* name, int nameLength, alist* head)
{
    Allowance left;
    const ByteView directory = viewOf(name, nameLength);
    head->next = nullptr;
    return readNamedDirectory(directory, *head, {directory, nullptr, left});
}

int vrdk_checkADF(const unsigned char* fci, int fciLength, alist* head)
{
    Allowance left;
    const Nesting unnamed{{}, nullptr, left};
    head->next = nullptr;
    return DirectoryReader(*head, unnamed).read(viewOf(fci, fciLength));
}

int vrdk_AidAppSelect(int prefixAllowed, const unsigned char* aid, int aidLength, flist* head)
{
    *head = flist{};
    const ByteView sought = viewOf(aid, aidLength);
    Fci fci;
    const unsigned status = selectByName(sought, kFirst, fci);
    if (status != kSuccess && status != kBlocked) {
        return 0;
    }
    const TagValue name = readTag(tag::kDfName, fci.view());
    if (name.size == 0 || sought.size() > name.size) {
        return 0;
    }
    if (sought.size() < name.size) {
        return prefixAllowed == 1 ? selectByPrefix(sought, status, fci, *head) : 0;
    }
    if (status == kBlocked || !(sought == name.view())) {
        return 0;
    }
    keepFci(*head, fci);
    return 1;
}

int vrdk_FinalAppSelect(const unsigned char* aid, int aidLength, unsigned char* fci, unsigned char* fciLength)
{
    return static_cast<int>(
        vrdk_SelectFile(kByName, kFirst, aid, static_cast<unsigned char>(aidLength), fci, fciLength));
}

int VR_selectapp(char* text)
{
    constexpr int kFailed = 15;
    constexpr std::uint8_t kIdentifierFile = 0x15;
    constexpr int kIdentifierSize = 10;
    constexpr std::size_t kTextLength = 19; // compatibility: "The purse's identifier loses its last digit"

    for (const char* nameText : {"315041592E5359532E4444463031", "D15600000145442F4550000000000000"}) {
        std::uint8_t name[17] = {};
        int nameLength = 0;
        halftochar(nameText, name, &nameLength);
        Fci fci;
        if (selectByName(viewOf(name, nameLength), kFirst, fci) != kSuccess) {
            return kFailed;
        }
    }
    std::uint8_t identifier[VORN_PAYLOAD_MAX] = {};
    int length = 0;
    if (VR_read_binary(kIdentifierFile, 0, kIdentifierSize, identifier, &length) != kSuccess) {
        return kFailed;
    }
    for (std::size_t i = 0; i < kIdentifierSize; ++i) {
        char digits[3];
        chartohalf(identifier[i], digits);
        text[2 * i] = digits[0];
        if (2 * i + 1 < kTextLength) {
            text[2 * i + 1] = digits[1];
        }
    }
    text[kTextLength] = '\0';
    return 0;
}

} // extern "C"
