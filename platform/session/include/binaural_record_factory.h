// The one entry point of the maker's factory client library
// (libbluetooth_audio_extend_factory_client.so) that the module calls: once for every device it
// opens, so that the session's service is up. The result is not used.
#ifndef BINAURAL_RECORD_FACTORY_H_
#define BINAURAL_RECORD_FACTORY_H_

extern "C" int binaural_record_factory_create();

#endif  // BINAURAL_RECORD_FACTORY_H_
