echo from the library
