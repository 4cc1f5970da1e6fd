// The fields of a host record by name: in JSON, on the command line, in configuration files.
//
// The list is generated from the library's field table, so it is complete. Names never change, because they
// are part of the documented output. A field without a known meaning is named after its identifier
// ("field_4a", "address_13").
#pragma once

#include <qiven/packet.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qiven::fields {

enum class Kind { kText, kNumber, kAddress, kList };

// One slot of the record.
struct Field {
    std::string name;
    Kind kind;
    uint32_t ulOffset;
    uint32_t cbField;  // width: of the number, of the text with its NUL, of one list element with its NUL
    std::vector<uint32_t> ids;  // packet identifiers that carry the slot, ascending
};

// Every slot that a packet can fill, ordered by its first identifier.
const std::vector<Field> &All();
const Field *ByName(std::string_view name);
const Field *ById(uint32_t ulPktId);  // null for identifiers without a slot and unknown ones

// Name of the slot that an identifier fills, or "field_xx".
std::string NameOfId(uint32_t ulPktId);

// Longest text (or list element) that the slot holds and one packet field carries.
size_t TextLimit(const Field &field);

// Read a field of the right kind. A number is in host byte order, an address is dotted text.
std::string Text(const nasinfo &record, const Field &field);
uint64_t Number(const nasinfo &record, const Field &field);
std::string Address(const nasinfo &record, const Field &field);
std::vector<std::string> List(const nasinfo &record, const Field &field);  // up to the last non-empty element
bool HasValue(const nasinfo &record, const Field &field);                  // neither empty nor 0

// Store a value; false, with the record unchanged, if it does not fit the slot or is not an address.
bool SetText(nasinfo &record, const Field &field, std::string_view text);
bool SetNumber(nasinfo &record, const Field &field, uint64_t ullValue);
bool SetAddress(nasinfo &record, const Field &field, const std::string &address);
bool SetList(nasinfo &record, const Field &field, const std::vector<std::string> &list);

// Whether the record is that of an answer, not of a query.
bool IsAnswer(const nasinfo &record);

// "02:00:00:00:00:01"
std::string MacText(const unsigned char (&rgMac)[6]);

// An address in network byte order as dotted text, and back.
std::string Dotted(uint32_t ulAddress);
std::optional<uint32_t> FromDotted(const std::string &address);

// Numbers of the services whose flags are set.
std::vector<uint64_t> ServicesSupported(const nasinfo &record);
std::vector<uint64_t> ServicesRunning(const nasinfo &record);

}  // namespace qiven::fields
