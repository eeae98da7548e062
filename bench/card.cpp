// SPDX-License-Identifier: Apache-2.0
// Lists, TLV data and the dictionary: a list is built against a plain builder with iterators (below) from the same flat
// data, a search against a walk over the bytes, the library's own dictionary against the walk that a host's own gets.
#include "ICC_COMM_VORN.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes fromHex(const std::string& text)
{
    Bytes bytes;
    std::string digits;
    for (const char c : text) {
        if (c != ' ') {
            digits += c;
        }
    }
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

double processorSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// ---------------------------------------------------------------- the plain builder

struct Object {
    std::uint32_t tag = 0;
    const std::uint8_t* value = nullptr;
    std::size_t size = 0;
};

class Iterator {
public:
    explicit Iterator(const Bytes& bytes) : at_(bytes.data()), end_(bytes.data() + bytes.size()) {}

    // Every object, those inside a template behind it.
    bool object(Object& object)
    {
        const std::uint8_t* const begin = at_;
        if (!tag(object.tag) || !length(object.size)) {
            return false;
        }
        object.value = at_;
        if (object.size > static_cast<std::size_t>(end_ - at_)) {
            return false;
        }
        at_ += (*begin & 0x20) == 0 ? object.size : 0;
        return true;
    }

    bool listEntry(std::uint32_t& wanted, std::size_t& size) { return tag(wanted) && length(size); }

private:
    bool tag(std::uint32_t& number)
    {
        if (at_ == end_) {
            return false;
        }
        number = *at_;
        if ((*at_++ & 0x1F) == 0x1F) {
            do {
                if (at_ == end_) {
                    return false;
                }
                number = number << 8 | *at_;
            } while ((*at_++ & 0x80) != 0);
        }
        return true;
    }

    bool length(std::size_t& size)
    {
        if (at_ == end_) {
            return false;
        }
        size = *at_++;
        if (size < 0x80) {
            return true;
        }
        const std::size_t more = size - 0x80;
        if (more > 2 || more > static_cast<std::size_t>(end_ - at_)) {
            return false;
        }
        size = 0;
        for (std::size_t i = 0; i < more; ++i) {
            size = size << 8 | *at_++;
        }
        return true;
    }

    const std::uint8_t* at_;
    const std::uint8_t* end_;
};

using Formats = std::vector<std::pair<std::uint32_t, char>>;

Formats sortedFormats()
{
    Formats formats;
    for (const unsigned char* at = gcTagName; *at != 0;) {
        std::uint32_t tag = *at++;
        if ((tag & 0x1F) == 0x1F) {
            tag = tag << 8 | *at++;
        }
        formats.emplace_back(tag, static_cast<char>(*at++));
    }
    std::stable_sort(formats.begin(), formats.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    return formats;
}

char formatOf(const Formats& formats, std::uint32_t tag)
{
    const auto found = std::lower_bound(formats.begin(), formats.end(), tag,
                                        [](const auto& row, std::uint32_t sought) { return row.first < sought; });
    return found == formats.end() || found->first != tag ? '-' : found->second;
}

std::size_t plainBuild(const Formats& formats, const Bytes& source, const Bytes& dol, std::uint8_t* out)
{
    std::uint8_t* const begin = out;
    Iterator list(dol);
    std::uint32_t tag = 0;
    for (std::size_t length = 0; list.listEntry(tag, length); out += length) {
        std::memset(out, 0, length);
        Iterator objects(source);
        Object object;
        bool found = false;
        while (!found && objects.object(object)) {
            found = object.tag == tag;
        }
        const char format = found ? formatOf(formats, tag) : '-';
        const std::size_t kept = std::min(object.size, length);
        if (format == 'n') {
            std::memcpy(out + length - kept, object.value + object.size - kept, kept);
        } else if (format != '-' && format != 't') {
            std::memset(out, format == 'c' ? 0xFF : 0x00, length);
            std::memcpy(out, object.value, kept);
        }
    }
    return static_cast<std::size_t>(out - begin);
}

// ---------------------------------------------------------------- lists

struct List {
    const char* name;
    const char* dol;
};
constexpr List kLists[] = {
    {"cdol1", "9F0206 9F0306 9F1A02 9505 5F2A02 9A03 9F2103 9C01 9F3704 9F4E14"},
    {"cdol2", "8A02 9F0206 9F0306 9F1A02 9505 5F2A02 9A03 9C01 9F3704"},
    {"pdol", "9F6604 9F0206 9F0306 9F1A02 9505 5F2A02 9A03 9C01 9F3704 DF6001 DF6901"},
};

// What the transaction calls have at hand.
const char kTerminalData[] = "9F0206000000001250 9F0306000000000000 9F1A020156 95050000000000 5F2A020156 9A03261121 "
                             "9F2103123456 9C0100 9F370412345678 9F4E1442414E4B20434F554E5445522000000000000000 "
                             "9F6604F6204000 9F7A0101 9F7B06000000100000 DF600101 DF690101 8A023030";

constexpr int kBuilds = 2000;

void list(benchmark::State& state, const List& which)
{
    const Formats formats = sortedFormats();
    const Bytes source = fromHex(kTerminalData);
    const Bytes dol = fromHex(which.dol);
    Bytes ours(VORN_DOL_DATA_CAPACITY);
    Bytes theirs(VORN_DOL_DATA_CAPACITY);
    int length = 0;
    double library = 0;
    double plain = 0;
    for ([[maybe_unused]] auto _ : state) {
        const double begin = processorSeconds();
        for (int i = 0; i < kBuilds; ++i) {
            vrdk_BuildDOL(source.data(), static_cast<int>(source.size()), dol.data(), static_cast<int>(dol.size()),
                          ours.data(), &length);
            benchmark::ClobberMemory();
        }
        const double between = processorSeconds();
        for (int i = 0; i < kBuilds; ++i) {
            benchmark::DoNotOptimize(plainBuild(formats, source, dol, theirs.data()));
            benchmark::ClobberMemory();
        }
        plain += processorSeconds() - between;
        library += between - begin;
        state.SetIterationTime((between - begin) / kBuilds);
    }
    if (std::memcmp(ours.data(), theirs.data(), static_cast<std::size_t>(length)) != 0) {
        state.SkipWithError("the two builders differ");
    }
    state.counters["ratio"] = library / plain;
}
BENCHMARK_CAPTURE(list, cdol1, kLists[0])->UseManualTime()->Iterations(10);
BENCHMARK_CAPTURE(list, cdol2, kLists[1])->UseManualTime()->Iterations(10);
BENCHMARK_CAPTURE(list, pdol, kLists[2])->UseManualTime()->Iterations(10);

// ---------------------------------------------------------------- searches

// Objects of 16 bytes, `depth` templates deep.
Bytes tlvData(std::size_t size, int depth)
{
    Bytes data;
    const auto object = fromHex("9F10 0D 0102030405060708090A0B0C0D");
    const std::size_t headers = static_cast<std::size_t>(depth) * 4;
    while (data.size() + object.size() + headers + 4 <= size) {
        data.insert(data.end(), object.begin(), object.end());
    }
    for (int i = 0; i < depth; ++i) {
        const std::size_t inner = data.size();
        const Bytes header{0x70, 0x82, static_cast<std::uint8_t>(inner >> 8), static_cast<std::uint8_t>(inner)};
        data.insert(data.begin(), header.begin(), header.end());
    }
    const Bytes last = fromHex("5A0101");
    data.insert(data.end(), last.begin(), last.end());
    return data;
}

void search(benchmark::State& state)
{
    const Bytes data = tlvData(static_cast<std::size_t>(state.range(0)), static_cast<int>(state.range(1)));
    const unsigned char tag[] = {0x5A};
    const int times = static_cast<int>(2'000'000 / data.size()) + 1;
    double library = 0;
    double plain = 0;
    for ([[maybe_unused]] auto _ : state) {
        const double begin = processorSeconds();
        for (int i = 0; i < times; ++i) {
            const unsigned char* const found = vrdk_findtag(tag, 1, data.data(), static_cast<int>(data.size()));
            benchmark::DoNotOptimize(found);
            if (found != data.data() + data.size() - 3) {
                state.SkipWithError("not found");
            }
        }
        const double between = processorSeconds();
        for (int i = 0; i < times; ++i) {
            Iterator objects(data);
            Object object;
            while (objects.object(object) && object.tag != 0x5A) {}
            benchmark::DoNotOptimize(object);
        }
        plain += processorSeconds() - between;
        library += between - begin;
        state.SetIterationTime((between - begin) / times);
    }
    state.counters["ratio"] = library / plain;
    state.counters["ns_per_byte"] =
        library * 1e9 / (static_cast<double>(state.iterations()) * times * static_cast<double>(data.size()));
}
BENCHMARK(search)
    ->ArgNames({"bytes", "depth"})
    ->Args({200, 1})
    ->Args({4096, 1})
    ->Args({65536, 1})
    ->Args({4096, 10})
    ->Args({4096, 100})
    ->UseManualTime()
    ->Iterations(5);

// ---------------------------------------------------------------- the dictionary

void dictionary(benchmark::State& state)
{
    constexpr int kTimes = 200;
    const int size = static_cast<int>(std::strlen(reinterpret_cast<const char*>(gcTagName)));
    const Bytes hosts(gcTagName, gcTagName + size);
    std::vector<Bytes> tags;
    for (const auto& row : sortedFormats()) {
        tags.push_back(row.first > 0xFF
                           ? Bytes{static_cast<std::uint8_t>(row.first >> 8), static_cast<std::uint8_t>(row.first)}
                           : Bytes{static_cast<std::uint8_t>(row.first)});
    }
    const auto lookUp = [&](const unsigned char* where) {
        const double begin = processorSeconds();
        for (int i = 0; i < kTimes; ++i) {
            for (const Bytes& tag : tags) {
                benchmark::DoNotOptimize(vrdk_GetTagType(tag.data(), static_cast<int>(tag.size()), where, size));
            }
        }
        return processorSeconds() - begin;
    };
    double own = 0;
    double walked = 0;
    for ([[maybe_unused]] auto _ : state) {
        const double took = lookUp(gcTagName);
        own += took;
        walked += lookUp(hosts.data());
        state.SetIterationTime(took / (kTimes * static_cast<double>(tags.size())));
    }
    state.counters["ratio"] = own / walked;
}
BENCHMARK(dictionary)->UseManualTime()->Iterations(10);

} // namespace

BENCHMARK_MAIN();
