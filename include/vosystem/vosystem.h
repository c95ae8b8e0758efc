// Umbrella header: every public header of the library.
#ifndef VOSYSTEM_VOSYSTEM_H
#define VOSYSTEM_VOSYSTEM_H

#include "vosystem/errors.h"
#include "vosystem/export.h"
#include "vosystem/memfunc.h"
#include "vosystem/strutf8.h"
#include "vosystem/textres.h"
#include "vosystem/ucconv.h"
#include "vosystem/ucdata.h"
#include "vosystem/ucdecomp.h"
#include "vosystem/ucstring.h"
#include "vosystem/vodblary.h"
#include "vosystem/vostring.h"

#endif
