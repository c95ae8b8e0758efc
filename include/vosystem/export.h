// Symbol visibility for the shared library: everything is hidden unless marked.
#ifndef VOSYSTEM_EXPORT_H
#define VOSYSTEM_EXPORT_H

#if defined(__GNUC__)
#define VOSYS_API __attribute__((visibility("default")))
#else
#define VOSYS_API
#endif

#endif
