// Byte order conversions of the C interface.
#include <qiven/log.h>

#include <endian.h>

uint16_t QIVENSocketHtons(uint16_t usHost) {
    return htobe16(usHost);
}
uint16_t QIVENSocketNtohs(uint16_t usNet) {
    return be16toh(usNet);
}
uint32_t QIVENSocketHtonl(uint32_t ulHost) {
    return htobe32(ulHost);
}
uint32_t QIVENSocketNtohl(uint32_t ulNet) {
    return be32toh(ulNet);
}
uint64_t QIVENSocketHtonll(uint64_t ullHost) {
    return htobe64(ullHost);
}
uint64_t QIVENSocketNtohll(uint64_t ullNet) {
    return QIVENSocketHtonll(ullNet);
}
uint32_t QIVENSocketHtoLEl(uint32_t ulHost) {
    return htole32(ulHost);
}
uint32_t QIVENSocketLEtoHl(uint32_t ulLE) {
    return QIVENSocketHtoLEl(ulLE);
}
uint64_t QIVENSocketHtoLEll(uint64_t ullHost) {
    return htole64(ullHost);
}
uint64_t QIVENSocketLEtoHll(uint64_t ullLE) {
    return QIVENSocketHtoLEll(ullLE);
}
