/* Calls a function that this kernel does not have. */

void knl_ofALaterKernel(void);

int preprocess_(void)
{
    return 0;
}

int process_(void)
{
    knl_ofALaterKernel();
    return 0;
}

int postprocess_(void)
{
    return 0;
}
