// Sequences of datagrams and times, compared with a slow model of the host table: one list, no hashes, no
// packed records, no bounds but those of the rules.
#include <qiven/packet.h>

#include <list>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "clock.h"
#include "fuzz.h"
#include "hosts.h"
#include "support/wire.h"

namespace {

using namespace qiven::watch;
using fuzz::Require;

constexpr uint64_t kTogether = kSecond, kLate = kSecond / 4, kVanish = 10 * kSecond;
constexpr size_t kSameKeyMax = 8;
constexpr size_t kAnswersMax = 300;

struct Answered {
    std::string ident, mac, name, word;  // word: all that describes the host
    uint32_t ulIP, ulSource, ulIfIndex, ulProcessID;
    uint64_t ullUs;

    bool IsSpeaker(const Answered &other) const { return mac == other.mac && ulSource == other.ulSource; }
    bool IsPlace(const Answered &other) const {
        return IsSpeaker(other) && ulIP == other.ulIP && ulIfIndex == other.ulIfIndex;
    }
};

struct Row {
    uint32_t ulNumber;
    std::string key, word, name;
    uint64_t ullFirst, ullLast, ullChanged;
    uint32_t ulRound, ulConflict = 0;
    uint64_t ullAnswers = 0;
    std::vector<Answered> places;
};

struct Model {
    std::list<Row> rows;  // the newest first
    uint32_t ulLast = 0, ulRound = 0;

    static std::string KeyOf(const Answered &a) {
        if (!a.ident.empty()) return "i" + a.ident;
        return a.mac.empty() ? "n" + a.name + "/" + std::to_string(a.ulIP) : "m" + a.mac;
    }
    std::vector<Row *> Same(const std::string &key) {
        std::vector<Row *> same;
        for (Row &row : rows)
            if (row.key == key) same.push_back(&row);
        return same;
    }
    void Erase(const Row *pGone) {
        const uint32_t ulGone = pGone->ulNumber;
        rows.remove_if([ulGone](const Row &row) { return row.ulNumber == ulGone; });
        for (Row &row : rows)
            if (row.ulConflict == ulGone) row.ulConflict = 0;
    }
    void NoteHeard(Row &row, const Answered &a) const {
        ++row.ullAnswers;
        row.ullLast = std::max(row.ullLast, a.ullUs);
        row.ulRound = ulRound;
    }
    void Agree(Row &row, const Answered &a) const {
        std::vector<Answered> &places = row.places;
        const auto at =
            std::find_if(places.begin(), places.end(), [&a](const Answered &p) { return p.IsPlace(a); });
        NoteHeard(row, a);
        if (at != places.end()) {
            *at = a;
            return;
        }
        if (places.size() == QIVEN_WATCH_ADDRESSES_MAX)
            places.erase(std::min_element(places.begin(), places.end(),
                                          [](const auto &x, const auto &y) { return x.ullUs < y.ullUs; }));
        places.push_back(a);
    }
    void Renew(Row &row, const Answered &a) const {
        Agree(row, a);
        row.word = a.word;
        row.name = a.name;
        row.ullChanged = a.ullUs;
    }
    static void Conflict(Row &a, Row &b) {
        if (a.ulConflict != 0 && b.ulConflict != 0) return;
        if (a.ulConflict == 0) a.ulConflict = b.ulNumber;
        if (b.ulConflict == 0) b.ulConflict = a.ulNumber;
    }
    void AddBeside(std::vector<Row *> same, const Answered &a) {
        if (same.size() == kSameKeyMax) {
            const auto it = std::min_element(same.begin(), same.end(), [](const Row *pX, const Row *pY) {
                return pX->ullLast < pY->ullLast;
            });
            if ((*it)->ulRound + kMissedRounds > ulRound) return;
            Erase(*it);
            *it = same.back();
            same.pop_back();
        }
        rows.push_front({++ulLast, KeyOf(a), a.word, a.name, a.ullUs, 0, a.ullUs, ulRound, 0, 0, {}});
        Agree(rows.front(), a);
        for (Row *pRow : same)
            if (pRow->ullLast + kTogether >= a.ullUs) Conflict(rows.front(), *pRow);
    }
    static Row *Agreeing(const std::vector<Row *> &same, const Answered &a) {
        for (Row *pRow : same) {
            const bool blOther = std::any_of(pRow->places.begin(), pRow->places.end(), [&a](const auto &p) {
                return a.ulProcessID != 0 && p.ulProcessID != 0 && p.ulProcessID != a.ulProcessID &&
                       p.ullUs + kTogether >= a.ullUs;
            });
            if (pRow->word == a.word && !blOther) return pRow;
        }
        return nullptr;
    }
    template <class Test>
    static Row *Find(const std::vector<Row *> &same, Test test) {
        for (Row *pRow : same)
            if (std::any_of(pRow->places.begin(), pRow->places.end(), test)) return pRow;
        return nullptr;
    }
    void Contradict(const std::vector<Row *> &same, Row &row, const Answered &a) {
        std::vector<Answered> &places = row.places;
        const auto IsSpeaker = [&a](const Answered &p) { return p.IsSpeaker(a); };
        if (Row *pOther = Agreeing(same, a);
            pOther != nullptr && (row.ulConflict == 0 || pOther->ulConflict == 0)) {
            std::erase_if(places, IsSpeaker);
            if (places.empty()) Erase(&row);
            return Agree(*pOther, a);
        }
        const bool blKeeps = std::any_of(places.begin(), places.end(),
                                         [&](const auto &p) { return p.IsSpeaker(a) && p.word == a.word; });
        const bool blOther = std::any_of(places.begin(), places.end(), [&](const auto &p) {
            return !p.IsSpeaker(a) && p.word == row.word;
        });
        if (!blKeeps || !blOther) return Renew(row, a);
        if (row.ullChanged + kLate > a.ullUs) return NoteHeard(row, a);
        std::erase_if(places, IsSpeaker);
        AddBeside(same, a);
    }
    void Hear(const Answered &a) {
        const std::vector<Row *> same = Same(KeyOf(a));
        if (same.empty()) return AddBeside(same, a);
        Row *pRow = Find(same, [&a](const Answered &p) { return p.IsSpeaker(a); });
        if (pRow == nullptr) {
            if (Row *pAgreeing = Agreeing(same, a); pAgreeing != nullptr) return Agree(*pAgreeing, a);
            Row *pMoved =
                a.mac.empty() ? nullptr : Find(same, [&a](const auto &p) { return p.mac == a.mac; });
            const bool blMoved = pMoved != nullptr && pMoved->ullLast + kTogether < a.ullUs;
            return blMoved ? Renew(*pMoved, a) : AddBeside(same, a);
        }
        if (pRow->word != a.word) return Contradict(same, *pRow, a);
        Agree(*pRow, a);
        for (Row *pOther : same)
            if (pOther->word != pRow->word && pRow->ullLast > pOther->ullFirst &&
                pOther->ullLast > pRow->ullFirst)
                Conflict(*pRow, *pOther);
    }
    void VanishSilent(uint64_t ullNowUs) {
        for (;;) {
            const auto it = std::find_if(rows.begin(), rows.end(), [&](const Row &row) {
                return row.ullLast + kVanish <= ullNowUs && row.ulRound + kMissedRounds <= ulRound;
            });
            if (it == rows.end()) return;
            Erase(&*it);
        }
    }
};

// An answer of few words, so that they meet again.
Answered TakeAnswer(fuzz::Input &input, std::string &datagram) {
    static const std::string kIdents[] = {"", "i", "i", "j"}, kMacs[] = {"", "aa", "bb", "cc"};
    static const std::string kNames[] = {"x", "y", "z", ""};
    const unsigned u = input.Byte(), v = input.Byte(), w = input.Byte();
    Answered a{kIdents[u & 3],
               kMacs[u >> 2 & 3],
               kNames[u >> 4 & 3],
               {},
               v & 3,
               1 + (v >> 2 & 15),
               2 + (v >> 6 & 1),
               w & 3,
               0};
    const std::string elements[] = {"", Field(0xBC, "one"), Field(0xBC, "one") + Field(0xBC, "two"),
                                    Field(0xBF, "one")};
    std::string description =
        Field(0x11, a.name) + Field(0x19, a.ident) + elements[w >> 2 & 3] + Number(0x48, w >> 4 & 3);
    a.word = a.name + "\n" + a.ident + "\n" + std::to_string(w >> 2 & 15);
    const uint32_t ulIP = a.ulIP;
    datagram = Basic(QIVEN_PKT_ANSWER) + description + Field(0x7C, a.mac) +
               Field(0x12, {reinterpret_cast<const char *>(&ulIP), sizeof ulIP}) +
               Number(0xC5, a.ulProcessID);
    return a;
}

struct Tested {
    std::unique_ptr<Table> pTable = std::make_unique<Table>();
    std::set<uint32_t> told;  // the hosts that the caller knows of

    Tested() {
        pTable->budget.cbMax = uint64_t{64} << 20;
        pTable->nHostsMax = QIVEN_WATCH_HOSTS_MAX;
        pTable->ullVanishUs = kVanish;
        pTable->ullChangeUs = kSecond;
        pTable->blAsks = true;
        Require(InitTable(*pTable) == 0, "a table can be made");
    }
    ~Tested() {
        FreeTable(*pTable);
        Require(pTable->budget.cbUsed == 0, "everything is freed");
    }
    Tested(const Tested &) = delete;
    Tested &operator=(const Tested &) = delete;

    void Hear(const Answered &a, const std::string &datagram) const {
        nasinfo record;
        QIVEN_RECEIVED received{};
        const auto *pb = fuzz::AsBytes(datagram);
        Require(QIVENPacketRead(nullptr, pb, static_cast<int>(datagram.size()), &record) > 0,
                "it is an answer");
        received.pnasInfo = &record;
        received.pbDatagram = pb;
        received.cbDatagram = static_cast<uint32_t>(datagram.size());
        received.ulSource = a.ulSource;
        received.ulIfIndex = a.ulIfIndex;
        received.ullMonotonicUs = a.ullUs;
        Datagram arrived{};
        arrived.ullArrivedUs = a.ullUs;
        arrived.ulSource = a.ulSource;
        arrived.ulIfIndex = a.ulIfIndex;
        const uint64_t ullDatagram = SipHash(pTable->key, pb, datagram.size());
        if (!HearAgain(*pTable, arrived, ullDatagram)) AddAnswer(*pTable, received, ullDatagram);
    }
    // As events are taken; each host appears once, and vanishes if it appeared.
    void TakeEvents() {
        while (Node *pNode = NextNode(*pTable)) {
            auto *pHost = reinterpret_cast<Host *>(pNode);
            const uint32_t ulHost = pHost->shown.ulHost;
            const uint8_t uTell = std::exchange(pHost->uTell, uint8_t{0});
            TakeOut(*pNode);
            if ((uTell & kToldAppeared) != 0) Require(told.insert(ulHost).second, "a host appears once");
            Require(told.count(ulHost) == 1, "what is told is of a host that the caller knows");
            pHost->ulChanged = 0;
            Free(pTable->budget, std::exchange(pHost->pbWas, nullptr), pHost->cbWas);
            if (uTell != kToldVanished) continue;
            told.erase(ulHost);
            FreeHost(*pTable, pHost);
        }
    }
};

void RequireSame(const Table &table, const Model &model) {
    uint32_t ulAfter = 0;
    nasinfo record;
    for (auto it = model.rows.rbegin(); it != model.rows.rend(); ++it) {
        Host *pHost = HostAfter(table, ulAfter);
        Require(pHost != nullptr && pHost->shown.ulHost == it->ulNumber, "the same hosts");
        ulAfter = it->ulNumber;
        Require(pHost->shown.ulConflict == it->ulConflict, "the same conflict");
        Require(pHost->shown.ullAnswers == it->ullAnswers && pHost->shown.ullLastUs == it->ullLast,
                "heard as often");
        Require(pHost->shown.nAddresses == it->places.size(), "as many addresses");
        for (uint32_t i = 0; i < pHost->shown.nAddresses; ++i) {
            const QIVEN_WATCH_ADDRESS &address = pHost->rgAddress[i];
            const Answered &place = it->places[i];
            Require(address.szMacAddr == place.mac && address.ulIP == place.ulIP &&
                        address.ulSource == place.ulSource && address.ulIfIndex == place.ulIfIndex &&
                        address.ullLastUs == place.ullUs,
                    "the same addresses");
        }
        Unpack(pHost->pbRecord, pHost->cbRecord, record);
        Require(record.szHostName == it->name, "the same record");
    }
    Require(HostAfter(table, ulAfter) == nullptr && table.nHosts == model.rows.size(), "no other host");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData) {
    static constexpr uint64_t kSteps[] = {0, 1, 100, 249, 251, 999, 1001, 5000};
    fuzz::Input input(fuzz::AsText(pData, cbData));
    Tested tested;
    Model model;
    uint64_t ullNowUs = 1000 * kSecond;
    for (size_t n = 0; n < kAnswersMax && !input.AtEnd(); ++n) {
        const unsigned u = input.Byte();
        ullNowUs += kSteps[u & 7] * kMillisecond;
        if ((u & 8) != 0) tested.pTable->ulRound = ++model.ulRound;
        if ((u & 16) != 0) {
            VanishSilent(*tested.pTable, ullNowUs, UINT32_MAX);
            model.VanishSilent(ullNowUs);
        }
        if ((u & 32) != 0) tested.TakeEvents();
        std::string datagram;
        Answered answered = TakeAnswer(input, datagram);
        answered.ullUs = ullNowUs;
        tested.Hear(answered, datagram);
        model.Hear(answered);
        RequireSame(*tested.pTable, model);
    }
    ReleaseHeld(*tested.pTable, ullNowUs + 2 * kSecond);
    tested.TakeEvents();
    std::set<uint32_t> there;
    for (const Row &row : model.rows)
        there.insert(row.ulNumber);
    Require(tested.told == there, "the caller knows the hosts that are there");
    return 0;
}
