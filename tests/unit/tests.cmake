# One block a folder of src/.
