/*
 * qiven/qiven.h - everything that libqiven offers. The conventions are in qiven/log.h.
 */
#ifndef QIVEN_QIVEN_H
#define QIVEN_QIVEN_H

#include <qiven/iface.h>
#include <qiven/keys.h>
#include <qiven/log.h>
#include <qiven/matrix.h>
#include <qiven/nasinfo.h>
#include <qiven/packet.h>
#include <qiven/search.h>
#include <qiven/udp.h>

#endif
