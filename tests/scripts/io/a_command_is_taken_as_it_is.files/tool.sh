echo from the working directory
