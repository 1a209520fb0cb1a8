// Process-wide objects built during static initialisation, in this order.
