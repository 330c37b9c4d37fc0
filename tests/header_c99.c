/* Compiled as strict C99: the public header must be valid C. */
#include "zemdc.h"

const zemLibraryVersion* zemdc_header_c99_probe(void);
const zemLibraryVersion* zemdc_header_c99_probe(void) { return zemdcGetLibVersion(); }
