// SPDX-License-Identifier: Apache-2.0
#include "tools/accept/acceptance.h"

#include "sim/cards/card.h"

#include <algorithm>
#include <chrono>

namespace vorn::tool::accept {

namespace {

// Says what another card said.
class StandIn : public sim::Card {
public:
    StandIn(std::uint8_t place, Bytes answer, const SeenCards& seen)
        : place_(place), answer_(std::move(answer)), seen_(seen)
    {}

    Bytes powerOn() override { return answer_; }
    void powerOff() override {}
    Bytes transmit(const Bytes& command) override
    {
        const auto found = seen_.responses.find({place_, command});
        return found == seen_.responses.end() ? Bytes{0x6D, 0x00} : found->second;
    }

private:
    std::uint8_t place_;
    Bytes answer_;
    const SeenCards& seen_;
};

class StandInMemory : public sim::MemoryCard {
public:
    explicit StandInMemory(Bytes answer) : answer_(std::move(answer)) {}

    Bytes activate() override { return answer_; }
    void deactivate() override {}
    bool authenticate(unsigned, Key, const Bytes&) override { return false; }
    std::optional<Bytes> read(unsigned) override { return std::nullopt; }
    bool write(unsigned, const Bytes&) override { return false; }

private:
    Bytes answer_;
};

// What a person does at the unit is done at the simulator, too.
class PlainHand : public Person {
public:
    PlainHand(sim::Reader& reader, const SeenCards& seen) : reader_(reader), seen_(seen) {}

    bool please(Wish wish) override
    {
        reader_.insert(sim::Slot::Contact,
                       wish == Wish::TakeOut ? nullptr : std::make_shared<StandIn>(kContact, Bytes{0x3B, 0x00}, seen_));
        return true;
    }

private:
    sim::Reader& reader_;
    const SeenCards& seen_;
};

} // namespace

Acceptance::Acceptance(ReaderLine& unit, Person* person)
    : unitLine_(unit), person_(person), plainChannel_(unit.isTty()), plainLine_(plainChannel_)
{
    plainChannel_.reader().checkLineSpeed(true);
}

void Acceptance::placeStandIns()
{
    using sim::Slot;
    sim::Reader& reader = plainChannel_.reader();
    const SeenCards& seen = unitLine_.seen();
    for (const Slot slot : {Slot::Contact, Slot::Psam1, Slot::Psam2, Slot::Psam3, Slot::Psam4, Slot::Field}) {
        const auto place = static_cast<std::uint8_t>(slot);
        const auto card = seen.answers.find(place);
        reader.remove(slot);
        if (card != seen.answers.end()) {
            reader.insert(slot, std::make_shared<StandIn>(place, card->second, seen));
        }
    }
    if (const auto card = seen.answers.find(kMemory); card != seen.answers.end()) {
        reader.insert(std::make_shared<StandInMemory>(card->second));
    }
}

void Acceptance::runBeside(const Step& step)
{
    PlainHand hand(plainChannel_.reader(), unitLine_.seen());
    if (!step.needsPerson) { // who has moved a card has left the one in the slot that is seen there now
        placeStandIns();
    }
    Bench bench{plainLine_, plainFindings_, &hand};
    step.run(bench);
}

const StepResult& Acceptance::run(const Step& step)
{
    using Clock = std::chrono::steady_clock;
    const std::size_t before = unitFindings_.all().size();
    const auto began = Clock::now();
    results_.push_back({&step, StepResult::End::Done, {}, {}, {}});
    const auto finish = [&] {
        results_.back().took = std::chrono::duration_cast<Time>(Clock::now() - began);
        for (std::size_t i = before; i < unitFindings_.all().size(); ++i) {
            results_.back().seen.push_back(unitFindings_.all()[i].about);
        }
        runBeside(step);
    };
    try {
        Bench bench{unitLine_, unitFindings_, person_};
        step.run(bench);
    } catch (const Failure& failure) {
        results_.back().end = StepResult::End::Failed;
        results_.back().why = failure.what();
        finish();
        throw;
    }
    finish();
    return results_.back();
}

void Acceptance::skip(const Step& step, const std::string& why)
{
    results_.push_back({&step, StepResult::End::Skipped, why, {}, {}});
}

bool Acceptance::differs(const sim::ObservationName& about) const
{
    const Json* const unit = unitFindings_.find(about.name);
    const Json* const simulator = plain(about);
    return unit != nullptr && simulator != nullptr && differ(about, *unit, *simulator);
}

std::size_t Acceptance::differences() const
{
    const auto& all = unitFindings_.all();
    return static_cast<std::size_t>(
        std::count_if(all.begin(), all.end(), [this](const Finding& finding) { return differs(*finding.about); }));
}

} // namespace vorn::tool::accept
