// Every public header of the library.

#ifndef ZQPLATFORM_ZQPLATFORM_H
#define ZQPLATFORM_ZQPLATFORM_H

#include "binary_io.h"
#include "file.h"
#include "gzstream_common.h"
#include "gzstream_zlib.h"
#include "hostinfo_common.h"
#include "zq_binary_dump.h"
#include "zqbyteorder.h"
#include "zqhalffloat.h"
#include "zqisnan.h"
#include "zqlimitedstack.h"
#include "zqmemory.h"
#include "zqprocess.h"
#include "zqsstream.h"
#include "zqstdstream.h"
#include "zqstream.h"
#include "zqstreambase.h"
#include "zqstreammanager.h"
#include "zqthread.h"
#include "zqtime.h"
#include "zquserinfo.h"
#include "zqversions.h"

#endif
