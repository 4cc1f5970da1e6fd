#include <qiven/qiven.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <set>
#include <string>

#include "commands.h"
#include "exit.h"
#include "fields.h"
#include "output.h"

namespace qiven {

namespace {

output::Writer writer;
std::set<std::string> seen;
std::exception_ptr failure;

int ShowHost(nasinfo *pRecord) {
    const nasinfo &record = *pRecord;
    if (record.ulPktType != QIVEN_PKT_ANSWER && record.ulPktType != QIVEN_PKT_ANSWER_INST) return 0;
    const std::string name = fields::Text(record, *fields::ByName("name"));
    const std::string ident = fields::Text(record, *fields::ByName("ident"));
    const std::string address = fields::Dotted(record.ulIP);
    if (!seen.insert(ident.empty() ? name + "\n" + address : ident).second) return 0;
    // The library lets no exception through.
    try {
        output::WriteRow(writer, {name, address, uint64_t{record.ulModel}, ident});
    } catch (...) {
        failure = std::current_exception();
    }
    return 0;
}

int HasFailed() {
    return failure ? 1 : 0;
}

int Find(int iTimeout) {
    writer.blStream = true;
    writer.columns = {{"name", 24}, {"address", 15}, {"model", 6}, {"ident", 20}};
    if (QIVENProcessKeyInit() != 0) return kNetwork;
    nasinfo query{};
    QIVEN_SEND send{};
    send.pnasInfo = &query;
    query.ulPktType = QIVEN_PKT_QUERY;
    query.ulFieldA4 = 0x01020000;
    QIVENSendPktIDAdd(nullptr, &send, 0x01U, 0xA4U, 0U);
    const QIVEN_CONN listen{"0.0.0.0", QIVEN_PORT, iTimeout, HasFailed, nullptr};
    const QIVEN_CONN ask{"255.255.255.255", QIVEN_PORT, -1, nullptr, nullptr};
    const QIVEN_RECV callbacks{nullptr, nullptr, ShowHost, nullptr};
    output::Begin(writer);
    const int iResult = QIVENUDPServer(&listen, &callbacks, &ask, &send);
    QIVENProcessKeyCleanup();
    if (failure) std::rethrow_exception(failure);
    output::End(writer);
    if (iResult != 0) return kNetwork;
    return seen.empty() ? kNothing : kDone;
}

}  // namespace

void RegisterFind(CLI::App &app, std::function<int()> &run) {
    CLI::App *pSub = app.add_subcommand("find", "Find the hosts on the local segment");
    static int iTimeout = 10;
    pSub->add_option("--timeout", iTimeout, "Seconds to listen")->check(CLI::Range(1, 3600));
    output::AddOptions(*pSub, writer.format, writer.colour);
    pSub->callback([&run] { run = [] { return Find(iTimeout); }; });
}

}  // namespace qiven
