// A network of the test's own.
#ifndef HALCYRIX_TESTS_SUPPORT_PRIVATE_NETWORK_H
#define HALCYRIX_TESTS_SUPPORT_PRIVATE_NETWORK_H

// Moves the process, which must have one thread, into a network namespace with a loopback device,
// and into a mount and user namespace with it, so that fixed ports are free and file systems can be
// mounted. Returns whether that could be done. Where the system allows no namespaces, waits instead
// until no other test uses the shared ports, and keeps them until the process ends.
bool EnterPrivateNetwork();

// Mounts an empty file system of `bytes` at an existing directory; false where that is not allowed.
bool MountSmallFileSystem(const char* path, long bytes);

#endif
