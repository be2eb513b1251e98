/* Calls what no kernel has. */
int knl_ofALaterKernel(void);

int preprocess_(void)
{
    return knl_ofALaterKernel();
}

int process_(void)
{
    return 0;
}

int postprocess_(void)
{
    return 0;
}
