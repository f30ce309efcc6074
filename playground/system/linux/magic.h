#pragma once

// No file of the playground lies in one of these systems.
enum FileSystemMagic : unsigned {
    BINFMTFS_MAGIC = 1,
    BPF_FS_MAGIC,
    CGROUP2_SUPER_MAGIC,
    CGROUP_SUPER_MAGIC,
    DEBUGFS_MAGIC,
    DEVPTS_SUPER_MAGIC,
    EFIVARFS_MAGIC,
    PROC_SUPER_MAGIC,
    PSTOREFS_MAGIC,
    SECURITYFS_MAGIC,
    SELINUX_MAGIC,
    SMACK_MAGIC,
    SYSFS_MAGIC,
    TRACEFS_MAGIC
};
