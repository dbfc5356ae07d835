// Stands in for the blocks runtime header (the Blocks ABI's _Block_copy and
// _Block_release), which GNUstep's headers include when the compiler has
// blocks. Nothing the adapters or GNUstep's headers compile calls those entry
// points (ARC copies blocks with -copy), so the header only has to exist:
// a file that starts to need them declares them here.
