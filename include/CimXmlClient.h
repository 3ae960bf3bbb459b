/*
 * CimXmlClient: run CIM operations against a CIM object manager, over
 * CIM-XML/HTTP or through the local broker, with plain C record trees.
 *
 * Umbrella header: include this one.
 */
#ifndef CIMXMLCLIENT_H
#define CIMXMLCLIENT_H

#include "cimxml/records.h"
#include "cimxml/lifecycle.h"
#include "cimxml/writer.h"
#include "cimxml/parser.h"
#include "cimxml/client.h"
#include "cimxml/local.h"

#endif
