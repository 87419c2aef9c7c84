// Nothing but the headers that CMake puts in front of it.
