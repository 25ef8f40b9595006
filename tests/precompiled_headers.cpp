// Compiled for the sake of the precompiled headers of its target alone.
