// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/mask_scan.h"

#include "tools/explain/lettered.h"
#include "tools/explain/mask.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>
#include <vector>

namespace vorn::tool {

namespace {

constexpr std::size_t kAccountMin = 12;
constexpr std::size_t kAccountMax = 19;
constexpr std::size_t kCertainLength = 12; // so many digits that begin like a card's are one, whatever Luhn says
constexpr std::size_t kShortestObject = 5; // characters: a tag, a length, and something to hide

// What a character is, looked up: every character of every text is asked for it.
enum Class : std::uint8_t { kDigit = 1, kHexDigit = 2, kLetterOrDigit = 4 };

constexpr std::array<std::uint8_t, 256> classesOfCharacters()
{
    std::array<std::uint8_t, 256> classes{};
    for (std::size_t i = 0; i < 10; ++i) {
        classes['0' + i] = kDigit | kHexDigit | kLetterOrDigit;
    }
    for (std::size_t i = 0; i < 26; ++i) {
        const std::uint8_t letter = i < 6 ? kHexDigit | kLetterOrDigit : kLetterOrDigit;
        classes['A' + i] = letter;
        classes['a' + i] = letter;
    }
    return classes;
}

constexpr std::array<std::uint8_t, 256> kClasses = classesOfCharacters();

bool is(Class wanted, char c) { return (kClasses[static_cast<unsigned char>(c)] & wanted) != 0; }
bool digit(char c) { return is(kDigit, c); }
bool hexDigit(char c) { return is(kHexDigit, c); }
bool letterOrDigit(char c) { return is(kLetterOrDigit, c); }
unsigned valueOf(char c) { return static_cast<unsigned>(digit(c) ? c - '0' : c >= 'a' ? c - 'a' + 10 : c - 'A' + 10); }

void hide(std::string& text, std::size_t from, std::size_t to)
{
    for (std::size_t i = from; i < std::min(to, text.size()); ++i) {
        text[i] = '*';
    }
}

void hideMiddle(std::string& text, std::size_t from, std::size_t size)
{
    text.replace(from, size, maskMiddle(text.substr(from, size), 6, 4));
}

std::size_t endOfDigits(const std::string& text, std::size_t from)
{
    while (from < text.size() && digit(text[from])) {
        ++from;
    }
    return from;
}

// ---------------------------------------------------------------- digits

// The first digits of a payment card's number name its issuer, and are no row of zeros.
bool beginsLikeCard(std::string_view digits)
{
    return digits[0] >= '3' && digits[0] <= '6' && digits.substr(1, 5) != "00000";
}

// Whether digits that begin here pass the check digit, at any length of an account number. With one digit more the
// other half of them counts twice, so both sums go along.
bool someLengthPassesLuhn(std::string_view digits)
{
    unsigned last = 0;   // the newest digit once, the one before it twice, and so on
    unsigned before = 0; // the other way round
    for (std::size_t i = 0; i < std::min(kAccountMax, digits.size()); ++i) {
        const unsigned value = valueOf(digits[i]);
        const unsigned twice = 2 * value - (value > 4 ? 9 : 0);
        const unsigned next = before + value;
        before = last + twice;
        last = next;
        if (i + 1 >= kAccountMin && last % 10 == 0) {
            return true;
        }
    }
    return false;
}

// Whether an account number stands anywhere in a run of digits.
bool couldHoldAccount(std::string_view run)
{
    for (; run.size() >= kAccountMin; run.remove_prefix(1)) {
        if (run.size() >= kCertainLength && beginsLikeCard(run)) {
            return true;
        }
        if (run[0] != '0' && someLengthPassesLuhn(run)) {
            return true;
        }
    }
    return false;
}

// "3030303031": hex of digits as characters, which are looked at as such.
bool characters(std::string_view digits)
{
    const auto threes = [&](std::size_t at) {
        for (; at < digits.size(); at += 2) {
            if (digits[at] != '3') {
                return false;
            }
        }
        return true;
    };
    return threes(0) || threes(1);
}

bool trackSeparator(char c) { return c == '=' || c == 'D' || c == 'd'; }

// Behind a separator: expiry, service code and what the issuer put there.
std::size_t endOfTrack(const std::string& text, std::size_t from)
{
    while (from < text.size() && (digit(text[from]) || trackSeparator(text[from]))) {
        ++from;
    }
    return from;
}

// Where the next run of digits begins that is long enough; the text's end when there is none. Such a run covers one of
// any places that stand that far from each other, so that most characters are not looked at.
std::size_t nextLongRun(const std::string& text, std::size_t from)
{
    for (std::size_t at = from + kAccountMin - 1; at < text.size(); at += kAccountMin) {
        if (!digit(text[at])) {
            continue;
        }
        std::size_t begin = at;
        while (begin > from && digit(text[begin - 1])) {
            --begin;
        }
        at = endOfDigits(text, at);
        if (at - begin >= kAccountMin) {
            return begin;
        }
    }
    return text.size();
}

void hideDigitRuns(std::string& text)
{
    constexpr std::size_t expirySize = 4;
    for (std::size_t at = nextLongRun(text, 0); at < text.size(); at = nextLongRun(text, at)) {
        const std::size_t end = endOfDigits(text, at);
        const bool track =
            end < text.size() && trackSeparator(text[end]) && endOfDigits(text, end + 1) - end > expirySize;
        const std::string_view run(text.data() + at, end - at);
        if (track || (!characters(run) && couldHoldAccount(run))) {
            hideMiddle(text, at, end - at);
        }
        at = track ? endOfTrack(text, end) : end;
        if (track) {
            hide(text, end + 1, at);
        }
    }
}

std::size_t endOfCharacterDigits(const std::string& hex, std::size_t from)
{
    while (from + 1 < hex.size() && hex[from] == '3' && digit(hex[from + 1])) {
        from += 2;
    }
    return from;
}

// "363232..." is hex of digits.
void hideCharacterDigits(std::string& hex)
{
    constexpr std::size_t shortest = 2 * kAccountMin;
    for (std::size_t at = 0; at + shortest <= hex.size(); ++at) {
        if (hex[at + shortest - 2] != '3' && hex[at + shortest - 1] != '3') {
            at += shortest - 1; // none begins before these two
            continue;
        }
        const std::size_t end = endOfCharacterDigits(hex, at);
        if (end - at < shortest) {
            continue;
        }
        std::string digits;
        for (std::size_t i = at + 1; i < end; i += 2) {
            digits += hex[i];
        }
        if (couldHoldAccount(digits)) {
            hideMiddle(hex, at, end - at);
            at = end - 1;
        } else {
            at = end - 2; // seen whole; the next may begin half a byte later
        }
    }
}

// ---------------------------------------------------------------- objects

// How the value of an object begins when bytes that look like its tag are one.
enum class Begin { Anything, Digits, TrackOne };

struct Shape {
    const char* tag;
    Tag number;
    Begin begin;
    std::size_t longest;
};

const Shape kShapes[] = {
    {"57", 0x57, Begin::Digits, 19},        {"5A", 0x5A, Begin::Digits, 10},
    {"56", 0x56, Begin::TrackOne, 76},      {"5F20", 0x5F20, Begin::Anything, 45},
    {"5F21", 0x5F21, Begin::Anything, 79},  {"5F22", 0x5F22, Begin::Anything, 40},
    {"5F23", 0x5F23, Begin::Anything, 107}, {"5F53", 0x5F53, Begin::Anything, 34},
    {"9F0B", 0x9F0B, Begin::Anything, 127}, {"9F1F", 0x9F1F, Begin::Anything, 127},
    {"9F20", 0x9F20, Begin::Anything, 127}, {"9F24", 0x9F24, Begin::Anything, 35},
    {"9F2D", 0x9F2D, Begin::Anything, 255}, {"9F46", 0x9F46, Begin::Anything, 255},
    {"9F61", 0x9F61, Begin::Anything, 127}, {"9F6B", 0x9F6B, Begin::Digits, 19},
};

bool tagAt(const std::string& hex, std::size_t at, const char* tag)
{
    for (; *tag != '\0'; ++tag, ++at) {
        if (at >= hex.size() || hex[at] == '*' || !hexDigit(hex[at]) || valueOf(hex[at]) != valueOf(*tag)) {
            return false;
        }
    }
    return true;
}

std::optional<std::size_t> byteAt(const std::string& hex, std::size_t at)
{
    if (at + 2 > hex.size() || !hexDigit(hex[at]) || !hexDigit(hex[at + 1])) {
        return std::nullopt;
    }
    return 16 * valueOf(hex[at]) + valueOf(hex[at + 1]);
}

bool begins(const std::string& hex, std::size_t at, std::size_t size, Begin begin)
{
    constexpr std::size_t enough = 6;
    switch (begin) {
    case Begin::Anything:
        return true;
    case Begin::Digits:
        return endOfDigits(hex, at) - at >= std::min({enough, size, hex.size() - at});
    case Begin::TrackOne:
        return hex.compare(at, 2, "42") == 0; // format B
    }
    return true;
}

void hideValue(std::string& hex, std::size_t at, std::size_t size, Tag tag)
{
    const std::size_t end = std::min(at + size, hex.size());
    const std::string value = hex.substr(at, end - at);
    const std::size_t digits = endOfDigits(value, 0);
    switch (secretOf(tag)) {
    case Secret::AccountNumber:
        hex.replace(at, digits,
                    at + size > hex.size() ? maskMiddle(value.substr(0, digits), 6, 0)
                                           : maskPan(value.substr(0, digits)));
        return;
    case Secret::Track2: {
        const std::size_t padding = at + size > hex.size() ? value.size() : value.find_last_not_of("Ff") + 1;
        const bool separated = digits < value.size() && (value[digits] == 'D' || value[digits] == 'd');
        hide(hex, at + digits + (separated ? 1 : 0), at + padding);
        hex.replace(at, digits,
                    digits < value.size() ? maskPan(value.substr(0, digits))
                                          : maskMiddle(value.substr(0, digits), 6, 0));
        return;
    }
    default:
        hide(hex, at, end);
    }
}

void hideObject(std::string& hex, std::size_t tagAtPlace, const Shape& shape)
{
    std::size_t at = tagAtPlace + std::string_view(shape.tag).size();
    auto length = byteAt(hex, at);
    at += 2;
    if (length && *length == 0x81) {
        length = byteAt(hex, at);
        at += 2;
    }
    if (length && *length > 0 && *length <= shape.longest && at < hex.size() &&
        begins(hex, at, 2 * *length, shape.begin)) {
        hideValue(hex, at, 2 * *length, shape.number);
    }
}

// What the tags above begin with, for a quick look.
bool tagMayBegin(char first, char second)
{
    if (first != '5' && first != '9') {
        return false;
    }
    return second == 'F' || second == 'f' ||
           (first == '5' && (second == '7' || second == '6' || second == 'A' || second == 'a'));
}

void hideObjects(std::string& hex)
{
    for (std::size_t at = 0; at + kShortestObject <= hex.size(); ++at) {
        if (!tagMayBegin(hex[at], hex[at + 1])) {
            continue;
        }
        for (const Shape& shape : kShapes) {
            if (tagAt(hex, at, shape.tag)) {
                hideObject(hex, at, shape);
            }
        }
    }
}

// ---------------------------------------------------------------- free text

std::size_t endOfHex(const std::string& text, std::size_t from)
{
    while (from < text.size() && hexDigit(text[from])) {
        ++from;
    }
    return from;
}

bool allDigits(const std::string& text, std::size_t from, std::size_t to)
{
    return std::all_of(text.begin() + static_cast<std::ptrdiff_t>(from), text.begin() + static_cast<std::ptrdiff_t>(to),
                       digit);
}

// A dump's bytes may go on in the next line; groups of digits have one blank or hyphen between them.
std::size_t nextInDump(const std::string& text, std::size_t from)
{
    const std::size_t next = text.find_first_not_of(" :-\t\r\n", from);
    return next == std::string::npos || next == from || next - from > 4 ? text.size() : next;
}

std::size_t nextGroup(const std::string& text, std::size_t from)
{
    return from + 1 < text.size() && (text[from] == ' ' || text[from] == '-') ? from + 1 : text.size();
}

// A piece of text that is hex or digits, perhaps with blanks inside: where it ends, and how much of it is no blank.
struct Piece {
    std::size_t end;
    std::size_t dense;
};

Piece pieceAt(const std::string& text, std::size_t at)
{
    const std::size_t first = endOfHex(text, at);
    const bool dump = first - at == 2;
    const bool group = !dump && first - at <= 6 && allDigits(text, at, first);
    Piece piece{first, first - at};
    while (dump || group) {
        const std::size_t next = dump ? nextInDump(text, piece.end) : nextGroup(text, piece.end);
        const std::size_t end = endOfHex(text, next);
        if (next >= text.size() || end == next ||
            (dump ? end - next != 2 : end - next > 7 || !allDigits(text, next, end))) {
            break;
        }
        piece = {end, piece.dense + end - next};
    }
    return piece;
}

void hidePiece(std::string& text, std::size_t from, std::size_t to)
{
    if (from == 0 && to == text.size() && endOfHex(text, 0) == to) {
        return hideInHex(text);
    }
    std::string dense;
    dense.reserve(to - from);
    std::copy_if(text.begin() + static_cast<std::ptrdiff_t>(from), text.begin() + static_cast<std::ptrdiff_t>(to),
                 std::back_inserter(dense), hexDigit);
    hideInHex(dense);
    auto masked = dense.begin();
    for (std::size_t i = from; i < to; ++i) {
        text[i] = hexDigit(text[i]) ? *masked++ : text[i];
    }
}

void hidePieces(std::string& text)
{
    for (std::size_t at = 0; at < text.size();) {
        if (!hexDigit(text[at])) {
            ++at;
            continue;
        }
        const Piece piece = pieceAt(text, at);
        if (piece.dense >= kShortestObject) {
            hidePiece(text, at, piece.end);
        }
        at = piece.end;
    }
}

// As they come from a stripe: "6225...=3012..." and "B6225...^NAME^3012...".
void hideTracks(std::string& text)
{
    if (text.find('=') == std::string::npos && text.find('^') == std::string::npos) {
        return;
    }
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '=' && text[at] != '^') {
            continue;
        }
        std::size_t begin = at;
        while (begin > 0 && digit(text[begin - 1])) {
            --begin;
        }
        if (at - begin < kAccountMin) {
            continue;
        }
        const std::size_t end =
            text[at] == '=' ? endOfTrack(text, at + 1) : std::min(text.find_first_of("?\r\n\",}", at + 1), text.size());
        hideMiddle(text, begin, at - begin);
        hide(text, at + 1, end);
        at = end - 1;
    }
}

// ---------------------------------------------------------------- lettered records

struct Field {
    char letter;
    std::size_t at;
    std::size_t size;
};

std::optional<Field> fieldAt(const std::string& text, std::size_t at)
{
    constexpr std::size_t header = 4;
    constexpr std::size_t longest = 128;
    if (at + header > text.size() || text[at] < 'A' || text[at] > 'L' || !allDigits(text, at + 1, at + header)) {
        return std::nullopt;
    }
    const std::size_t size = std::stoul(text.substr(at + 1, 3));
    return size <= longest ? std::optional(Field{text[at], at + header, size}) : std::nullopt;
}

void hideField(std::string& text, const Field& field)
{
    const std::size_t end = std::min(field.at + field.size, text.size());
    const std::string value = text.substr(field.at, end - field.at);
    switch (field.letter) {
    case 'A':
        text.replace(field.at, value.size(), end < field.at + field.size ? maskMiddle(value, 6, 0) : maskPan(value));
        return;
    case 'B':
        text.replace(field.at, value.size(), maskTrack2(value));
        return;
    case 'J':
    case 'K':
    case 'L':
        return hide(text, field.at, end);
    default:
        return;
    }
}

// The fields stand in the order of their letters; two of them, or one to the end of the text, are a record.
std::size_t recordAt(const std::string& text, std::size_t at, std::vector<Field>& fields)
{
    fields.clear();
    char before = '\0';
    while (const auto field = fieldAt(text, at)) {
        if (field->letter <= before) {
            break;
        }
        before = field->letter;
        fields.push_back(*field);
        at = std::min(field->at + field->size, text.size());
        if (at == text.size()) {
            break;
        }
    }
    return at;
}

struct Span {
    std::size_t from, to;
};

// What a host gives the transaction calls: amounts, dates, codes, in fields of other letters.
std::size_t transactionDataAt(const std::string& text, std::size_t at)
{
    constexpr std::size_t header = 4;
    constexpr std::size_t longest = 64;
    std::size_t fields = 0;
    while (at + header <= text.size() && text[at] >= 'J' && text[at] <= 'V' && allDigits(text, at + 1, at + header)) {
        const std::size_t size = std::stoul(text.substr(at + 1, 3));
        const std::size_t end = at + header + size;
        if (size > longest || end > text.size() || endOfHex(text, at + header) < end) {
            break;
        }
        at = end;
        ++fields;
    }
    return fields >= 2 ? at : std::string::npos;
}

// A card's transaction log as the library hands it out, to the end of the text.
std::size_t transactionsAt(const std::string& text, std::size_t at)
{
    if (text.compare(at, 4, "P012") != 0) {
        return std::string::npos;
    }
    const std::size_t end = text.find_last_not_of("\r\n") + 1; // behind the letter at least
    const TransactionList list = parseTransactions(text.substr(at, end - at));
    const bool plain = std::all_of(list.transactions.begin(), list.transactions.end(),
                                   [](const LoggedTransaction& one) { return maskText(one.merchant) == one.merchant; });
    return list.problem.empty() && plain ? end : std::string::npos;
}

// Where the first word begins that does not begin before a place.
std::size_t wordFrom(const std::string& text, std::size_t from)
{
    if (from > 0 && letterOrDigit(text[from - 1])) {
        while (from < text.size() && letterOrDigit(text[from])) {
            ++from;
        }
    }
    while (from < text.size() && !letterOrDigit(text[from])) {
        ++from;
    }
    return from;
}

// Hides the secret fields; what is left of the records needs no other look.
std::vector<Span> hideRecords(std::string& text)
{
    std::vector<Field> fields;
    std::vector<Span> spans;
    for (std::size_t at = wordFrom(text, 0); at < text.size();) {
        if (text[at] < 'A' || text[at] > 'V') {
            at = wordFrom(text, at + 1);
            continue;
        }
        const std::size_t end = recordAt(text, at, fields);
        const bool record = fields.size() >= 2 || (fields.size() == 1 && end == text.size());
        const std::size_t log = record ? end : transactionsAt(text, at);
        const std::size_t data = log != std::string::npos ? log : transactionDataAt(text, at);
        for (const Field& field : fields) {
            if (record) {
                hideField(text, field);
            }
        }
        if (data != std::string::npos) {
            spans.push_back({at, data});
        }
        at = wordFrom(text, data != std::string::npos ? data : at + 1);
    }
    return spans;
}

void hideBetween(std::string& text, std::size_t from, std::size_t to)
{
    if (to - from == text.size()) {
        hideTracks(text);
        return hidePieces(text);
    }
    std::string part = text.substr(from, to - from);
    hideTracks(part);
    hidePieces(part);
    text.replace(from, to - from, part);
}

} // namespace

bool passesLuhn(std::string_view digits)
{
    unsigned sum = 0;
    bool twice = false;
    for (auto it = digits.rbegin(); it != digits.rend(); ++it) {
        const unsigned value = static_cast<unsigned>(*it - '0') * (twice ? 2 : 1);
        sum += value > 9 ? value - 9 : value;
        twice = !twice;
    }
    return sum % 10 == 0;
}

void hideInHex(std::string& hex)
{
    hideObjects(hex);
    hideCharacterDigits(hex);
    hideDigitRuns(hex);
}

std::string maskText(std::string text)
{
    std::size_t from = 0;
    for (const Span& span : hideRecords(text)) {
        hideBetween(text, from, span.from);
        from = span.to;
    }
    hideBetween(text, from, text.size());
    return text;
}

} // namespace vorn::tool
