/* For the linker: what a stand-in needs of the library that it stands for, under a name that the
   audit module leads to it. Nothing loads this file. */
__attribute__((visibility("default"))) int G_LastError;
