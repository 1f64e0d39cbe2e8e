/*
 * Hardware-module records and the loader's entry points, in the shape the platform fixes for them.
 *
 * A device tree brings the platform's own header of this name; this one lets the same sources build
 * without it. Slot order, constness and sizes are the interface: a client of the module reads these
 * records by offset. Plain C records throughout, because a device record is made by zero-filling.
 */
#ifndef HARDWARE_HARDWARE_H
#define HARDWARE_HARDWARE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define HARDWARE_MODULE_TAG 0x48574D54u /* "HWMT", first letter in the top byte */
#define HARDWARE_DEVICE_TAG 0x48574454u /* "HWDT" */

/* One encoding for HAL, module and device versions: major in the upper byte, minor in the lower. */
#define HARDWARE_MAKE_API_VERSION(major, minor) ((((major)&0xff) << 8) | ((minor)&0xff))
#define HARDWARE_MODULE_API_VERSION(major, minor) HARDWARE_MAKE_API_VERSION(major, minor)
#define HARDWARE_DEVICE_API_VERSION(major, minor) HARDWARE_MAKE_API_VERSION(major, minor)
#define HARDWARE_HAL_API_VERSION HARDWARE_MAKE_API_VERSION(1, 0)

/* The loader looks up this one symbol. It must be a writable object with default visibility. */
#define HAL_MODULE_INFO_SYM HMI
#define HAL_MODULE_INFO_SYM_AS_STR "HMI"

/* Reserved words follow the pointer width. */
#ifdef __LP64__
typedef uint64_t hw_reserved_word_t;
#else
typedef uint32_t hw_reserved_word_t;
#endif

struct hw_module_t;
struct hw_module_methods_t;
struct hw_device_t;

typedef struct hw_module_t {
  uint32_t tag; /* HARDWARE_MODULE_TAG */
  uint16_t module_api_version;
#define version_major module_api_version
  uint16_t hal_api_version;
#define version_minor hal_api_version
  const char* id; /* module class; the loader compares it with the class asked for */
  const char* name;
  const char* author;
  struct hw_module_methods_t* methods;
  void* dso; /* written by the loader: its handle of the library */
  hw_reserved_word_t reserved[25];
} hw_module_t;

typedef struct hw_module_methods_t {
  int (*open)(const struct hw_module_t* module, const char* id, struct hw_device_t** device);
} hw_module_methods_t;

typedef struct hw_device_t {
  uint32_t tag; /* HARDWARE_DEVICE_TAG */
  uint32_t version;
  struct hw_module_t* module;
  hw_reserved_word_t reserved[12];
  int (*close)(struct hw_device_t* device); /* behind the reserved words */
} hw_device_t;

/*
 * Finds, loads and checks the module of a class, or of a class and an instance.
 * 0: *module is the module's record, its dso field set. -22: the file found cannot be loaded, has no
 * HMI or another class; *module is null. -2: no file found; *module is untouched.
 */
int hw_get_module(const char* id, const struct hw_module_t** module);
int hw_get_module_by_class(const char* class_id, const char* instance,
                           const struct hw_module_t** module);

#ifdef __cplusplus
}
#endif

#endif /* HARDWARE_HARDWARE_H */
