/* The headers in C: they compile without a warning, the records have their fixed layout, and every function exists. */
#include <stddef.h>

#include "ka.h"
#include "quel.h"
#include "lumo.h"
#include "lumo_array.h"
#include "tarn.h"
#include "quel/host.h"

#define AT(type, member, offset) _Static_assert(offsetof(type, member) == (offset), #type "." #member)
AT(LumoMAT, elemtype, 8);
AT(LumoMAT, width, 12);
AT(LumoMAT, height, 16);
AT(LumoMAT, stride, 20);
AT(LumoMAT, data, 24);
AT(QuelCALL, iface, 24);
AT(QuelCALL, slot, 32);
AT(QuelERR, status, 24);
AT(QuelMODULE, format, 0x40);
AT(QuelMODULE, path, 0x48);
AT(QuelMODULE, type_code, 0x60);
AT(QuelMODULE, attach, 0x98);
AT(QuelMODULE, name3, 0x188);
AT(QuelMODULE, dependencies, 0x1b8);
AT(QuelMODULE, attached, 0x1c0);
AT(QuelMODULE, cell, 0x1c8);
AT(QuelMODULE, one, 0x1e0);
AT(QuelMODULE, build_date, 0x1e8);
AT(QuelIFACE, format, 0x40);
AT(QuelIFACE, packed_code, 0x60);
AT(QuelIFACE, version, 0x68);
AT(QuelIFACE, slot_count, 0xb8);
AT(QuelIFACE, slots, 0xc0);
AT(LumoARRAY, elemtype, 0);
_Static_assert(sizeof(QuelSLOT) == 56, "slot");
_Static_assert(sizeof(QuelMODULE) == 496, "descriptor");
_Static_assert(sizeof(LumoMAT) == 32, "matrix");
_Static_assert(sizeof(LumoAWARP) == 48, "warp");

#define F(name) (void (*)(void)) name
void (*const host_functions[])(void) = {
    F(QuelMkerr),
    F(QuelMkerr_u),
    F(_QuelSelistPushback_nlk),
    F(KaSMEMSTGopen),
    F(KaSMEMSTGclear),
    F(KaSMEMSTGalloc),
    F(KaSMEMSTGaalloc),
    F(KaSMEMSTGfree),
    F(KaMEMSTGdestroy),
    F(KaPOOLopen),
    F(KaPOOLget),
    F(LumoARRPARMS),
    F(LumoARRPARMSnull),
    F(LumoARRPARMSmodify),
    F(LumoARRPARMSsizedim),
    F(LumoARRPARMSstridedim),
    F(LumoARRPARMSsqueezeI),
    F(LumoARRAYinit_memstg),
    F(LumoARRAYprojdim),
    F(LumoARRAYsqueezeI),
    F(_LumoARRroi),
    F(_LumoARRmatgenparm),
    F(_LumoARRfree),
    F(_LumoARRdestroy),
    F(LumoARRCLSnchannels),
    F(LumoARRLOsub),
    F(LumoARRLOsame),
    F(LumoARRLOshow),
    F(LumoELEMTYPEsizeof),
    F(LumoELEMTYPEalignof),
    F(LumoELEMTYPEshow),
    F(_LumoELEMTYPEto_old),
    F(_LumoMATof),
    F(_LumoMATinit),
    F(LumoRECTwidth),
    F(LumoRECTheight),
    F(LumoRECTsize),
    F(LumoRECTnull),
    F(LumoRECTequ),
    F(LumoRECTprosub),
    F(LumoRECTintersecI),
    F(_LumoRECTextendI),
    F(_LumoRECTmovetoltI),
    F(_LumoRECTmoveleftI),
    F(_LumoRECTwidthsetlI),
    F(_LumoRECTheightsettI),
    F(_LumoRECTwidthcutiflI),
    F(_LumoRECTheightcutiftI),
    F(_LumoExtendROI),
    F(_LumoAWARPshift),
    F(_LumoAWARPback),
    F(_LumoAWARPaddI),
    F(_LumoAWARPrect),
    F(LumoLOGprintf),
};
