// Where the processor's module registers are: one pointer to each block.
//
// The registers stand behind the module base address on the board and in this process's memory
// elsewhere (board.h). The pointers are fixed before any static constructor runs. There is no
// lock: a block belongs to the code that drives its module.
#pragma once

#include "mbar_mcf5407.h"

/// System integration module.
extern volatile mcf5407Sim_t* const pSIM;
/// Chip selects, pCS[0] to pCS[7].
extern volatile mcf5407Cs_t* const pCS;
/// DRAM controller.
extern volatile mcf5407Dramc_t* const pDRAMC;
/// Timers, pTIMER[0] and pTIMER[1].
extern volatile mcf5407Timer_t* const pTIMER;
/// UARTs, pUART[0] and pUART[1].
extern volatile mcf5407Uart_t* const pUART;
/// Parallel port.
extern volatile mcf5407Pp_t* const pPP;
/// I2C module.
extern volatile mcf5407Mbus_t* const pMBUS;
/// DMA channels, pDMA[0] to pDMA[3].
extern volatile mcf5407Dma_t* const pDMA;
