# Inherit this from the device's makefile; the coefficient file comes with the module.
PRODUCT_PACKAGES += audio.binaural_record.default
