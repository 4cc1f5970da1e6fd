// The input fills a record and lists its fields: the packet must match the wire
// format, and be read back unchanged.
#include <memory>

#include "same_read.h"
#include "slow_writer.h"

namespace {

using fuzz::Input;
using fuzz::Lines;
using fuzz::Require;

// A request, and the expected content of its list.
struct Request {
    nasinfo record{};
    QIVEN_SEND send{&record, 0, {}};
    std::vector<unsigned int> ids;

    void List(std::initializer_list<unsigned int> more, int iResult) {
        const bool blRoom = ids.size() + more.size() <= QIVEN_SEND_MAX;
        Require(iResult == (blRoom ? static_cast<int>(more.size()) : -1), "what has no room is not listed");
        if (blRoom) ids.insert(ids.end(), more);
    }

    // Sets a value through the library, and compares with setting it directly.
    void Set(const SlowField &field, std::string_view value) {
        const size_t cbSlot = field.cbWidth * (field.cKind == 'a' ? 32 : 1);
        std::string buffer(value.substr(0, cbSlot));
        const size_t cbValue = buffer.size();
        buffer.resize(cbSlot);
        const auto id = static_cast<unsigned int>(field.id);
        const bool blListed = std::find(ids.begin(), ids.end(), id) != ids.end();
        const bool blRoom = blListed || ids.size() < QIVEN_SEND_MAX;
        nasinfo expected = record;
        if (blRoom)
            memcpy(reinterpret_cast<char *>(&expected) + field.cbOffset, buffer.data(),
                   std::max(cbValue, field.cbWidth));
        const int iResult = QIVENSendPktIDSet(nullptr, &send, id, buffer.data(), static_cast<int>(cbValue));
        Require(iResult == (blRoom ? 0 : -1), "a value is set when its identifier has room in the list");
        Require(fuzz::SameBytes(expected, record), "a value goes to its slot and nowhere else");
        if (blRoom && !blListed) ids.push_back(id);
    }

    void RequireSameList() const {
        Require(static_cast<size_t>(send.nPktID) == ids.size() &&
                    std::equal(ids.begin(), ids.end(), send.rgPktID),
                "the list holds what was listed, in order");
    }
};

const SlowField &AnyField(Input &input) {
    return kSlowFields[input.Byte() % std::size(kSlowFields)];
}

// Some elements of an array, all with the same text of up to the full width of an element.
void SetElements(Request &request, Input &input) {
    const int id = static_cast<int>(0xBC + input.Byte() % 4);
    const auto &field = *std::find_if(std::begin(kSlowFields), std::end(kSlowFields),
                                      [id](const SlowField &some) { return some.id == id; });
    const unsigned int nElements = input.Byte() % 33;
    const size_t cbText = input.Byte() % (field.cbWidth + 1);
    std::string element(cbText, static_cast<char>(input.Byte()));
    element.resize(field.cbWidth);
    std::string value;
    for (unsigned int i = 0; i < nElements; ++i)
        value += element;
    request.Set(field, value);
}

void Step(Request &request, Input &input) {
    const unsigned int uKind = input.Byte();
    unsigned int id = 0;
    switch (uKind % 8) {
        case 0:  // any identifier, known or not
            id = std::max(input.Byte(), 1U);
            return request.List({id}, QIVENSendPktIDAdd(nullptr, &request.send, id, 0));
        case 1:
            return request.List({0xB0, 0xB1, 0xB8, 0xB9},
                                QIVENSendPktIDAddServ(nullptr, &request.send, 1, 1));
        case 2:
            return SetElements(request, input);
        case 3: {  // one text repeated, so that a short input can fill a packet
            const SlowField &field = AnyField(input);
            const size_t cbText = input.Word() % 2100;
            return request.Set(field, std::string(cbText, static_cast<char>(input.Byte())));
        }
        case 4:
            id = static_cast<unsigned int>(AnyField(input).id);
            return request.List({id, id}, QIVENSendPktIDAdd(nullptr, &request.send, id, id, 0));
        default: {
            const SlowField &field = AnyField(input);
            const size_t cb = field.cKind == 'i' ? field.cbWidth : uKind >> 3;
            return request.Set(field, input.Take(cb));
        }
    }
}

// Every listed value that the format can represent is in the record that was read.
void RequireCameBack(const Request &request, const nasinfo &back) {
    for (const SlowField &field : kSlowFields) {
        if (std::count(request.ids.begin(), request.ids.end(), field.id) == 0 || field.cKind == 'a') continue;
        const char *pSent = reinterpret_cast<const char *>(&request.record) + field.cbOffset;
        const char *pBack = reinterpret_cast<const char *>(&back) + field.cbOffset;
        const bool blDefault = field.id == 0xC0 && *pSent == '\0';
        Require(blDefault || (field.cKind == 'i' ? memcmp(pSent, pBack, field.cbWidth) == 0
                                                 : strncmp(pSent, pBack, field.cbWidth) == 0),
                "a value comes back as it was sent");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData) {
    Input input(fuzz::AsText(pData, cbData));
    const unsigned int cbGiven = input.Word() % (QIVEN_PACKET_MAX + 1);
    Request request;
    for (int i = 0; i < 600 && !input.AtEnd(); ++i)
        Step(request, input);
    request.RequireSameList();
    if (request.ids.empty()) return 0;

    const SlowWriter slow(request.record, request.ids);
    const std::string before(cbGiven, '.');
    int cbBuffer = static_cast<int>(cbGiven);
    auto *pBuffer = static_cast<unsigned char *>(malloc(std::max(cbGiven, 1U)));
    memcpy(pBuffer, before.data(), cbGiven);
    LogCapture log;
    const int cb = QIVENPacketWrite(log.Record(), &pBuffer, &cbBuffer, &request.send);
    const std::unique_ptr<unsigned char, decltype(&free)> owner(pBuffer, free);
    Require(cb == static_cast<int>(slow.packet.size()), "both writers give the same result");
    Require(LogCapture::Take() == slow.messages, "both writers report the same");
    Require(cbBuffer == std::max(static_cast<int>(cbGiven), cb), "the buffer grows to the packet at most");
    const std::string_view all = fuzz::AsText(pBuffer, static_cast<size_t>(cbBuffer));
    const auto cbPacket = static_cast<size_t>(cb);
    Require(all.substr(0, cbPacket) == slow.packet, "both writers write the same");
    if (cbPacket < cbGiven)
        Require(all.substr(cbPacket) == before.substr(cbPacket), "the buffer's rest is left alone");
    if (cb == 0) return 0;
    const SlowReader read = fuzz::RequireSameRead(all.substr(0, cbPacket), QIVENPacketRead);
    if (read.iResult > 0) RequireCameBack(request, read.record);
    return 0;
}
