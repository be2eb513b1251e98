/* A module made for a kernel that offers more than this one. */
int knl_ofALaterKernel(void);

int preprocess_(void)
{
    return 0;
}

int process_(void)
{
    return knl_ofALaterKernel();
}

int postprocess_(void)
{
    return 0;
}
