/* Export and linkage macros shared by every public header of CimXmlClient. */
#ifndef CIMXML_EXPORT_H
#define CIMXML_EXPORT_H

#if defined(CIMXML_BUILDING_LIBRARY)
#define CIMXML_API __attribute__((visibility("default")))
#else
#define CIMXML_API
#endif

#ifdef __cplusplus
#define CIMXML_BEGIN_DECLS extern "C" {
#define CIMXML_END_DECLS }
#else
#define CIMXML_BEGIN_DECLS
#define CIMXML_END_DECLS
#endif

#endif
