// Any bytes as a packet that may be sealed, and as the content of a sealed packet.
#include <qiven/keys.h>
#include <sodium.h>

#include "same_read.h"

namespace {

using fuzz::Lines;
using fuzz::Require;

const Lines kNotOpened = {"2|packet:# Failed to decrypt packet\n"};

std::string Seal(std::string_view plain) {
    std::string box(plain.size() + crypto_box_SEALBYTES, '\0');
    crypto_box_seal(reinterpret_cast<unsigned char *>(box.data()), fuzz::AsBytes(plain), plain.size(),
                    QIVENProcessPublicKeyGet());
    return kSealedHeader + box;
}

int Read(const QIVEN_LOG *pLog, std::string_view packet, nasinfo &record) {
    return QIVENPacketReadEncrypted(pLog, fuzz::AsBytes(packet), static_cast<int>(packet.size()), &record);
}

void RequireNotOpened(std::string_view packet) {
    LogCapture log;
    const nasinfo before = fuzz::Dirty();
    nasinfo record = before;
    Require(Read(log.Record(), packet, record) == 0, "a box that cannot be opened is refused");
    Require(LogCapture::Take() == kNotOpened, "a box that cannot be opened is reported as that");
    Require(fuzz::SameBytes(before, record), "a box that cannot be opened leaves the record alone");
}

void RequireOpened(std::string_view plain, std::string_view packet) {
    LogCapture log;
    nasinfo record = fuzz::Dirty();
    const SlowReader slow{std::string(plain)};
    Require(Read(log.Record(), packet, record) == slow.iResult, "what is inside decides");
    Require(fuzz::SameBytes(slow.record, record), "what is inside fills the record");
    Lines messages = LogCapture::Take();
    Require(!messages.empty() && messages[0].starts_with("2|packet:# QIVENPacketReadEncrypted(") &&
                messages[0].ends_with("): Decrypted packet.\n"),
            "opening a box is reported");
    messages.erase(messages.begin());
    Require(messages == slow.messages, "what is inside is reported as if it had come plain");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData) {
    static const bool blKeys = QIVENProcessKeyInit() == 0;
    Require(blKeys, "there are keys");
    const std::string_view input = fuzz::AsText(pData, cbData);
    if (input.size() > kSealedHeader.size() && input.starts_with(kSealedHeader))
        RequireNotOpened(input);
    else if (!input.empty())
        fuzz::RequireSameRead(input, QIVENPacketReadEncrypted);

    std::string packet = Seal(input);
    if (input.size() > QIVEN_PACKET_MAX) {
        RequireNotOpened(packet);
        return 0;
    }
    RequireOpened(input, packet);
    // The input selects a bit to change and the length to truncate to.
    fuzz::Input where(input);
    const size_t cbBox = packet.size() - kSealedHeader.size();
    const size_t iChanged = kSealedHeader.size() + where.Word() % cbBox;
    RequireNotOpened(packet.substr(0, iChanged > kSealedHeader.size() ? iChanged : packet.size() - 1));
    packet[iChanged] = static_cast<char>(packet[iChanged] ^ (1 << where.Byte() % 8));
    RequireNotOpened(packet);
    return 0;
}
