/// How fast other processes read a parameter of the service, alone and eight at once, each beside its floor.
#ifndef BENCH_PARAMETERS_H
#define BENCH_PARAMETERS_H

class Module;

/// Prints the rows; answers whether they keep their limits. The eCall service must be there.
bool BenchParameters(Module& module);

#endif
