// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/recording_redaction.h"

#include "tools/explain/frame_view.h"
#include "tools/explain/hex.h"
#include "tools/explain/mask.h"

#include <algorithm>
#include <utility>

namespace vorn::tool {

namespace {

using sim::LineUnit;
using Kind = sim::RecordedLine::Kind;

enum Operation : std::uint8_t { kPowerOn = 0x22, kActivate = 0x24, kApdu = 0x26 };
constexpr std::size_t kApduAt = 3;    // behind 32 26 and the slot
constexpr std::size_t kPayloadAt = 2; // of an answer, behind 32 and the status
const std::string kCommandMark = "Indata----------------------\n";
const std::string kAnswerMark = "Outdata----------------------\n";

bool fromReader(Kind kind) { return kind == Kind::FromReader || kind == Kind::Dropped; }

Bytes behind(const Bytes& bytes, std::size_t at)
{
    return {bytes.begin() + static_cast<std::ptrdiff_t>(std::min(at, bytes.size())), bytes.end()};
}

// Zeros where the masked hex has stars.
Bytes zeroed(Bytes bytes, const std::string& masked)
{
    for (std::size_t i = 0; i < bytes.size() && 2 * i + 1 < masked.size(); ++i) {
        const unsigned high = masked[2 * i] == '*' ? 0x0F : 0xFF;
        const unsigned low = masked[2 * i + 1] == '*' ? 0xF0 : 0xFF;
        bytes[i] = static_cast<std::uint8_t>(bytes[i] & high & low);
    }
    return bytes;
}

// A frame that is wrong may hold anything in its characters: none of them stays. What made it wrong does.
Bytes blanked(Bytes raw, const std::string& problem)
{
    constexpr std::uint8_t foreign = 0x20;
    const std::size_t size = raw.size();
    for (std::size_t i = 0; i < size; ++i) {
        const bool frameCharacter = raw[i] >= 0x30 && raw[i] <= 0x3F;
        const bool length = raw[0] == sim::kStx && i < 5;
        if (raw[i] != sim::kStx && raw[i] != sim::kEtx && !(length && frameCharacter)) {
            raw[i] = frameCharacter ? std::uint8_t{0x30} : foreign;
        }
    }
    if (problem == "check" && size > 3) {
        raw[size - 2] = raw[size - 3] = 0x3F; // of zeros the check is 00
    }
    return raw;
}

// Outside of frames: a frame that lost its beginning, a version, anything.
Bytes withoutSecrets(const Bytes& bytes)
{
    constexpr std::size_t shortRun = 8; // of a frame's characters
    std::string text(bytes.begin(), bytes.end());
    const auto inFrame = [](char c) { return c >= 0x30 && c <= 0x3F; };
    for (auto from = text.begin(); from != text.end();) {
        from = std::find_if(from, text.end(), inFrame);
        const auto to = std::find_if_not(from, text.end(), inFrame);
        if (static_cast<std::size_t>(to - from) >= shortRun) {
            std::fill(from, to, '0');
        }
        from = to;
    }
    const std::string masked = maskText(text);
    for (std::size_t i = 0; i < text.size() && i < masked.size(); ++i) {
        text[i] = masked[i] == '*' ? '0' : text[i];
    }
    const Bytes left(text.begin(), text.end());
    Bytes clean = zeroed(left, hexText(left, false));
    for (std::size_t i = 0; i < clean.size(); ++i) { // half a byte that is left must not begin or end anything
        const bool marks = clean[i] == sim::kStx || clean[i] == sim::kEtx || clean[i] == sim::kEsc;
        clean[i] = marks && clean[i] != bytes[i] ? std::uint8_t{0x00} : clean[i];
    }
    return clean;
}

} // namespace

RecordingRedaction::RecordingRedaction(sim::Recording recording, CryptogramChecks checks)
    : recording_(std::move(recording)), checks_(std::move(checks))
{
    cutUp();
    checkAll();
    redactFrames();
    redactRest();
    putBack();
}

// ---------------------------------------------------------------- the recording in pieces

void RecordingRedaction::addUnits(std::vector<LineUnit>& units, bool fromHost, std::size_t line)
{
    Stream& stream = fromHost ? host_ : reader_;
    for (LineUnit& unit : units) {
        const std::size_t at = stream.cut;
        stream.cut += unit.raw.size();
        pieces_.push_back({fromHost, std::move(unit), at, line});
    }
    units.clear();
}

void RecordingRedaction::cutUp()
{
    sim::LineUnits fromHost(true);
    sim::LineUnits answers(false);
    std::vector<LineUnit> units;
    for (std::size_t i = 0; i < recording_.lines.size(); ++i) {
        const sim::RecordedLine& line = recording_.lines[i];
        if (!line.hasBytes()) {
            continue;
        }
        const bool host = line.kind == Kind::FromHost;
        Bytes& stream = host ? host_.bytes : reader_.bytes;
        stream.insert(stream.end(), line.bytes.begin(), line.bytes.end());
        for (const std::uint8_t byte : line.bytes) {
            (host ? fromHost : answers).add(byte, units);
            addUnits(units, host, i);
        }
    }
    const std::size_t last = recording_.lines.empty() ? 0 : recording_.lines.size() - 1;
    fromHost.end(units);
    addUnits(units, true, last);
    answers.end(units);
    addUnits(units, false, last);
}

// ---------------------------------------------------------------- what can be told

void RecordingRedaction::checkAll()
{
    const bool again = std::any_of(recording_.lines.begin(), recording_.lines.end(),
                                   [](const sim::RecordedLine& line) { return line.kind == Kind::Redacted; });
    if (again) {
        return; // over zeros no cryptogram is right
    }
    Bytes command;
    for (const Piece& piece : pieces_) {
        const Bytes& content = piece.unit.content;
        if (piece.unit.kind != LineUnit::Kind::Frame || piece.fromHost) {
            command = piece.fromHost ? content : command;
            continue;
        }
        const Bytes asked = std::exchange(command, {});
        if (asked.size() < 2 || content.size() < kPayloadAt || content[1] != 0x00) {
            continue;
        }
        if (asked[1] == kPowerOn || asked[1] == kActivate) {
            checks_.powerOn();
        } else if (asked[1] == kApdu && asked.size() > kApduAt) {
            std::string said = checks_.exchange(behind(asked, kApduAt), behind(content, kPayloadAt));
            if (!said.empty()) {
                told_[piece.line].push_back(std::move(said));
            }
        }
    }
}

// ---------------------------------------------------------------- what is replaced

void RecordingRedaction::replace(const Piece& piece, const Bytes& bytes)
{
    if (bytes.size() != piece.unit.raw.size() || bytes == piece.unit.raw) {
        return;
    }
    Bytes& stream = piece.fromHost ? host_.bytes : reader_.bytes;
    std::copy(bytes.begin(), bytes.end(), stream.begin() + static_cast<std::ptrdiff_t>(piece.at));
    ++count_;
}

// Through the same hands as a log, so that the same is a secret, and one in one place is one in every other.
void RecordingRedaction::redactFrames()
{
    const auto each = [this](auto use) {
        for (const Piece& piece : pieces_) {
            if (piece.unit.kind == LineUnit::Kind::Frame && piece.unit.content.size() >= kPayloadAt) {
                use(piece, piece.fromHost ? kCommandMark : kAnswerMark,
                    toHex(piece.fromHost ? piece.unit.content : behind(piece.unit.content, kPayloadAt)) + "\n");
            }
        }
    };
    Redaction redaction;
    each([&](const Piece&, const std::string& mark, const std::string& dump) {
        redaction.learn(mark);
        redaction.learn(dump);
    });
    redaction.learnEnd();

    std::vector<Bytes> clean;
    const auto collect = [&clean](const std::string& text) {
        if (text.find('-') == std::string::npos) {
            clean.push_back(fromHex(text).value_or(Bytes()));
        }
    };
    each([&](const Piece&, const std::string& mark, const std::string& dump) {
        redaction.write(mark, collect);
        redaction.write(dump, collect);
    });
    redaction.writeEnd(collect);

    std::size_t next = 0;
    Bytes command;
    each([&](const Piece& piece, const std::string&, const std::string&) {
        const Bytes& content = piece.unit.content;
        Bytes is = clean.at(next++);
        if (piece.fromHost) {
            command = content;
            is = zeroed(is, explainReaderCommand(content, false).hex);
        } else {
            is.insert(is.begin(), content.begin(), content.begin() + kPayloadAt);
        }
        replace(piece, sim::encodeFrame(is));
    });
}

void RecordingRedaction::redactRest()
{
    for (std::size_t i = 0; i < pieces_.size(); ++i) {
        const Piece& piece = pieces_[i];
        if (piece.unit.kind == LineUnit::Kind::BadFrame) {
            replace(piece, blanked(piece.unit.raw, piece.unit.problem));
        }
    }
    for (const bool fromHost : {true, false}) {
        Piece together;
        together.fromHost = fromHost;
        const auto deliver = [&] {
            if (!together.unit.raw.empty()) {
                replace(together, withoutSecrets(together.unit.raw));
            }
            together.unit.raw.clear();
        };
        for (const Piece& piece : pieces_) {
            if (piece.fromHost != fromHost) {
                continue;
            }
            if (piece.unit.kind != LineUnit::Kind::Other) {
                deliver();
                continue;
            }
            together.at = together.unit.raw.empty() ? piece.at : together.at;
            together.unit.raw.insert(together.unit.raw.end(), piece.unit.raw.begin(), piece.unit.raw.end());
        }
        deliver();
    }
}

void RecordingRedaction::putBack()
{
    std::size_t hostAt = 0;
    std::size_t readerAt = 0;
    for (sim::RecordedLine& line : recording_.lines) {
        if (line.hasBytes()) {
            const bool reader = fromReader(line.kind);
            std::size_t& at = reader ? readerAt : hostAt;
            const Bytes& stream = reader ? reader_.bytes : host_.bytes;
            std::copy_n(stream.begin() + static_cast<std::ptrdiff_t>(at), line.bytes.size(), line.bytes.begin());
            at += line.bytes.size();
        }
        const std::string masked = maskText(line.text);
        count_ += masked == line.text ? 0U : 1U;
        line.text = masked;
    }
}

std::string RecordingRedaction::text(const std::string& about) const
{
    std::string copy = sim::recordingHead(about);
    sim::RecordedLine head;
    head.kind = Kind::Redacted;
    copy += sim::textOf(head);
    for (std::size_t i = 0; i < recording_.lines.size(); ++i) {
        copy += sim::textOf(recording_.lines[i]);
        const auto told = told_.find(i);
        for (const std::string& said : told == told_.end() ? std::vector<std::string>() : told->second) {
            sim::RecordedLine line;
            line.at = recording_.lines[i].at;
            line.kind = Kind::Told;
            line.text = said;
            copy += sim::textOf(line);
        }
    }
    return copy;
}

} // namespace vorn::tool
