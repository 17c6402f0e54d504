/* What tests and `tarn check` ask of memory. The libKa that hosts are linked with has none of it: a second one, of the
 * same name in the folder check/, has. */
#ifndef TARN_HOST_KA_TEST_H
#define TARN_HOST_KA_TEST_H

#include "ka.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Makes the n-th allocation from now on (1: the next) of this process's storages and pools fail, once; 0 takes it back.
 * Blocks and pool objects count, as their users ask for them; the memory that storages and pools take for themselves
 * doesn't. Returns how many allocations were made since the last call; the first call starts the counting and returns
 * 0. Not for use while other threads allocate. */
KA_API uint64_t KaTESTfailnth(uint64_t n);

/* What is open or handed out now in the whole process. */
typedef struct KaTESTLIVE {
    uint64_t storages; /* storages and pools that are open */
    uint64_t blocks;   /* blocks handed out by storages */
    uint64_t bytes;    /* their bytes, as asked for */
} KaTESTLIVE;
KA_API KaTESTLIVE KaTESTlive(void);

#ifdef __cplusplus
}
#endif
#endif
