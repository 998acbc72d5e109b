// Copying the template set's support directories into the store, and the
// secure pages into the secure store directory.
#ifndef STOREGEN_DRIVER_DIR_COPY_H_
#define STOREGEN_DRIVER_DIR_COPY_H_

namespace storegen {

// Copies every subdirectory of the template-set directory into the store's
// output directory. 0, or -4 when a top-level destination cannot be made.
int CopyDirs();
// Copies the directory tree |source| to |dest| (unless excluded by the
// template set). 0, or -4 when |dest| cannot be made.
int tb_CopyDirectory(const char* source, const char* dest);
// Copies the template set's secure pages under SecureContentPath. 0, or -12
// when a destination could not be written.
int CopySecureFiles();

}  // namespace storegen

#endif  // STOREGEN_DRIVER_DIR_COPY_H_
