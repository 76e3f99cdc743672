#pragma once

#include <IOKit/IOKitLib.h>

/// The port rights that the program holds: objects are counted by their names, as the kernel does,
/// and connections are open or not. What is held counts in the books as io_object and io_connect.
/// Names of 0 are no rights. Any thread.
namespace tinmac {

/// Notes one more right, and gives the name back.
io_object_t holdObject(io_object_t name);
/// Takes one right away. Traps when the program holds none.
void dropObject(io_object_t name, const char* function);
/// Notes a call that names an object to which the program has no right.
void expectObject(io_object_t name, const char* function);

void holdConnection(io_connect_t name);
/// Traps when the connection is not open.
void dropConnection(io_connect_t name, const char* function);
/// Notes a call on a connection that is not open.
void expectConnection(io_connect_t name, const char* function);

}  // namespace tinmac
