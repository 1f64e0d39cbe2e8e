// Finds, loads and checks an audio module as the platform does: search order, folder rule, the HMI
// symbol, the class id, the handle written into the record. hw_get_module and hw_get_module_by_class
// are declared by hardware/hardware.h; here is what a device has and a development machine has not.
// Folders are the device's and go through host_resolve(). For one thread at a time.
#ifndef PLATFORM_HOST_HOST_LOADER_H
#define PLATFORM_HOST_HOST_LOADER_H

#include <hardware/hardware.h>

// Sets a system property the search asks for ("ro.hardware", "ro.product.board", ...); null unsets it.
void host_set_property(const char* name, const char* value);

// Loads and checks one given file. 0, or -22 with *module null.
int host_load_module(const char* path, const char* class_id, const hw_module_t** module);

// In words, why the last call of a loading function failed; names every file and folder concerned.
const char* host_loader_error();

#endif  // PLATFORM_HOST_HOST_LOADER_H
