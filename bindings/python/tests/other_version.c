/* A library of another version: the package must say so. */
#include <stdint.h>
uint32_t enginefs_version(void);
uint32_t enginefs_version(void) { return 0x020507; }
