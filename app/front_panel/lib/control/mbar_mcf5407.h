// The module register blocks of the MCF5407 processor, as structures.
//
// The names are those of the processor's manual, and every offset is checked here. Gaps are
// spelled out as arrays named gapN, so that the layout holds on every compiler and alignment rule.
// The structures only describe: mbar.h says where the registers are. They are accessed through
// pointers to volatile. Offsets in comments count from the module base address.
#pragma once

#include <cstddef>
#include <cstdint>

/// System integration module, 0x000.
struct mcf5407Sim_t {
  std::uint8_t RSR;     ///< reset status
  std::uint8_t SYPCR;   ///< system protection control
  std::uint8_t SWIVR;   ///< software watchdog interrupt vector
  std::uint8_t SWSR;    ///< software watchdog service
  std::uint16_t PAR;    ///< pin assignment
  std::uint8_t IRQPAR;  ///< interrupt port assignment
  std::uint8_t gap0;
  std::uint8_t PLLCR;  ///< PLL control
  std::uint8_t gap1[3];
  std::uint8_t MPARK;  ///< default bus master park
  std::uint8_t gap2[51];
  std::uint32_t IPR;  ///< interrupt pending
  std::uint32_t IMR;  ///< interrupt mask: a set bit masks the source
  std::uint8_t gap3[3];
  std::uint8_t AVR;      ///< autovector control
  std::uint8_t ICR[12];  ///< interrupt control: 0 watchdog, 1-2 timers, 3 I2C, 4-5 UARTs, 6-9 DMA
  std::uint8_t gap4[40];
};
static_assert(offsetof(mcf5407Sim_t, RSR) == 0x000);
static_assert(offsetof(mcf5407Sim_t, SYPCR) == 0x001);
static_assert(offsetof(mcf5407Sim_t, SWIVR) == 0x002);
static_assert(offsetof(mcf5407Sim_t, SWSR) == 0x003);
static_assert(offsetof(mcf5407Sim_t, PAR) == 0x004);
static_assert(offsetof(mcf5407Sim_t, IRQPAR) == 0x006);
static_assert(offsetof(mcf5407Sim_t, PLLCR) == 0x008);
static_assert(offsetof(mcf5407Sim_t, MPARK) == 0x00C);
static_assert(offsetof(mcf5407Sim_t, IPR) == 0x040);
static_assert(offsetof(mcf5407Sim_t, IMR) == 0x044);
static_assert(offsetof(mcf5407Sim_t, AVR) == 0x04B);
static_assert(offsetof(mcf5407Sim_t, ICR) == 0x04C);
static_assert(sizeof(mcf5407Sim_t) == 0x080);

/// A chip select; eight of them from 0x080, one every 12 bytes.
struct mcf5407Cs_t {
  std::uint16_t CSAR;  ///< address
  std::uint8_t gap0[2];
  std::uint32_t CSMR;  ///< mask
  std::uint8_t gap1[2];
  std::uint16_t CSCR;  ///< control
};
static_assert(offsetof(mcf5407Cs_t, CSAR) == 0x0);
static_assert(offsetof(mcf5407Cs_t, CSMR) == 0x4);
static_assert(offsetof(mcf5407Cs_t, CSCR) == 0xA);
static_assert(sizeof(mcf5407Cs_t) == 12);

/// DRAM controller, 0x100.
struct mcf5407Dramc_t {
  std::uint16_t DCR;  ///< control
  std::uint8_t gap0[6];
  std::uint32_t DACR0;  ///< address and control, bank 0
  std::uint32_t DMR0;   ///< mask, bank 0
  std::uint32_t DACR1;  ///< address and control, bank 1
  std::uint32_t DMR1;   ///< mask, bank 1
};
static_assert(offsetof(mcf5407Dramc_t, DCR) == 0x00);
static_assert(offsetof(mcf5407Dramc_t, DACR0) == 0x08);
static_assert(offsetof(mcf5407Dramc_t, DMR0) == 0x0C);
static_assert(offsetof(mcf5407Dramc_t, DACR1) == 0x10);
static_assert(offsetof(mcf5407Dramc_t, DMR1) == 0x14);
static_assert(sizeof(mcf5407Dramc_t) == 0x18);

/// A timer; two of them, 0x140 and 0x180.
struct mcf5407Timer_t {
  std::uint16_t TMR;  ///< mode
  std::uint8_t gap0[2];
  std::uint16_t TRR;  ///< reference
  std::uint8_t gap1[2];
  std::uint16_t TCR;  ///< capture
  std::uint8_t gap2[2];
  std::uint16_t TCN;  ///< counter
  std::uint8_t gap3[3];
  std::uint8_t TER;  ///< event
  std::uint8_t gap4[46];
};
static_assert(offsetof(mcf5407Timer_t, TMR) == 0x00);
static_assert(offsetof(mcf5407Timer_t, TRR) == 0x04);
static_assert(offsetof(mcf5407Timer_t, TCR) == 0x08);
static_assert(offsetof(mcf5407Timer_t, TCN) == 0x0C);
static_assert(offsetof(mcf5407Timer_t, TER) == 0x11);
static_assert(sizeof(mcf5407Timer_t) == 0x40);

/// A UART; two of them, 0x1C0 and 0x200. A pair of names in a union is one address that reads as
/// the first and is written as the second.
struct mcf5407Uart_t {
  std::uint8_t UMR;  ///< mode
  std::uint8_t gap0[3];
  union {
    std::uint8_t USR;   ///< status
    std::uint8_t UCSR;  ///< clock select
  };
  std::uint8_t gap1[3];
  std::uint8_t UCR;  ///< command; write only
  std::uint8_t gap2[3];
  union {
    std::uint8_t URB;  ///< receive buffer
    std::uint8_t UTB;  ///< transmit buffer
  };
  std::uint8_t gap3[3];
  union {
    std::uint8_t UIPCR;  ///< input port change
    std::uint8_t UACR;   ///< auxiliary control
  };
  std::uint8_t gap4[3];
  union {
    std::uint8_t UISR;  ///< interrupt status
    std::uint8_t UIMR;  ///< interrupt mask
  };
  std::uint8_t gap5[3];
  std::uint8_t UBG1;  ///< baud rate, high
  std::uint8_t gap6[3];
  std::uint8_t UBG2;  ///< baud rate, low
  std::uint8_t gap7[19];
  std::uint8_t UIVR;  ///< interrupt vector
  std::uint8_t gap8[3];
  std::uint8_t UIP;  ///< input port; read only
  std::uint8_t gap9[3];
  std::uint8_t UOP1;  ///< output port set; write only
  std::uint8_t gap10[3];
  std::uint8_t UOP0;  ///< output port reset; write only
  std::uint8_t gap11[3];
};
static_assert(offsetof(mcf5407Uart_t, UMR) == 0x00);
static_assert(offsetof(mcf5407Uart_t, USR) == 0x04 && offsetof(mcf5407Uart_t, UCSR) == 0x04);
static_assert(offsetof(mcf5407Uart_t, UCR) == 0x08);
static_assert(offsetof(mcf5407Uart_t, URB) == 0x0C && offsetof(mcf5407Uart_t, UTB) == 0x0C);
static_assert(offsetof(mcf5407Uart_t, UIPCR) == 0x10 && offsetof(mcf5407Uart_t, UACR) == 0x10);
static_assert(offsetof(mcf5407Uart_t, UISR) == 0x14 && offsetof(mcf5407Uart_t, UIMR) == 0x14);
static_assert(offsetof(mcf5407Uart_t, UBG1) == 0x18);
static_assert(offsetof(mcf5407Uart_t, UBG2) == 0x1C);
static_assert(offsetof(mcf5407Uart_t, UIVR) == 0x30);
static_assert(offsetof(mcf5407Uart_t, UIP) == 0x34);
static_assert(offsetof(mcf5407Uart_t, UOP1) == 0x38);
static_assert(offsetof(mcf5407Uart_t, UOP0) == 0x3C);
static_assert(sizeof(mcf5407Uart_t) == 0x40);

/// Parallel port, 0x244.
struct mcf5407Pp_t {
  std::uint16_t PADDR;  ///< data direction
  std::uint8_t gap0[2];
  std::uint16_t PADAT;  ///< data
};
static_assert(offsetof(mcf5407Pp_t, PADDR) == 0x0);
static_assert(offsetof(mcf5407Pp_t, PADAT) == 0x4);
static_assert(sizeof(mcf5407Pp_t) == 6);

/// I2C module, 0x280.
struct mcf5407Mbus_t {
  std::uint8_t MADR;  ///< address
  std::uint8_t gap0[3];
  std::uint8_t MFDR;  ///< frequency divider
  std::uint8_t gap1[3];
  std::uint8_t MBCR;  ///< control
  std::uint8_t gap2[3];
  std::uint8_t MBSR;  ///< status
  std::uint8_t gap3[3];
  std::uint8_t MBDR;  ///< data
};
static_assert(offsetof(mcf5407Mbus_t, MADR) == 0x00);
static_assert(offsetof(mcf5407Mbus_t, MFDR) == 0x04);
static_assert(offsetof(mcf5407Mbus_t, MBCR) == 0x08);
static_assert(offsetof(mcf5407Mbus_t, MBSR) == 0x0C);
static_assert(offsetof(mcf5407Mbus_t, MBDR) == 0x10);
static_assert(sizeof(mcf5407Mbus_t) == 0x11);

/// A DMA channel; four of them from 0x300, one every 0x40 bytes.
struct mcf5407Dma_t {
  std::uint32_t SAR;  ///< source address
  std::uint32_t DAR;  ///< destination address
  std::uint16_t DCR;  ///< control
  std::uint8_t gap0[2];
  union {
    std::uint16_t BCR;    ///< byte count
    std::uint32_t BCR24;  ///< byte count in the 24-bit count mode
  };
  std::uint8_t DSR;  ///< status
  std::uint8_t gap1[3];
  std::uint8_t DIVR;  ///< interrupt vector
  std::uint8_t gap2[43];
};
static_assert(offsetof(mcf5407Dma_t, SAR) == 0x00);
static_assert(offsetof(mcf5407Dma_t, DAR) == 0x04);
static_assert(offsetof(mcf5407Dma_t, DCR) == 0x08);
static_assert(offsetof(mcf5407Dma_t, BCR) == 0x0C && offsetof(mcf5407Dma_t, BCR24) == 0x0C);
static_assert(offsetof(mcf5407Dma_t, DSR) == 0x10);
static_assert(offsetof(mcf5407Dma_t, DIVR) == 0x14);
static_assert(sizeof(mcf5407Dma_t) == 0x40);

/// All module registers, from the module base address on.
struct mcf5407_t {
  mcf5407Sim_t SIM;
  mcf5407Cs_t CS[8];
  std::uint8_t gap0[0x20];
  mcf5407Dramc_t DRAMC;
  std::uint8_t gap1[0x28];
  mcf5407Timer_t TIMER[2];
  mcf5407Uart_t UART[2];
  std::uint8_t gap2[4];
  mcf5407Pp_t PP;
  std::uint8_t gap3[0x36];
  mcf5407Mbus_t MBUS;
  std::uint8_t gap4[0x6F];
  mcf5407Dma_t DMA[4];
};
static_assert(offsetof(mcf5407_t, SIM) == 0x000);
static_assert(offsetof(mcf5407_t, CS) == 0x080);
static_assert(offsetof(mcf5407_t, DRAMC) == 0x100);
static_assert(offsetof(mcf5407_t, TIMER) == 0x140);
static_assert(offsetof(mcf5407_t, UART) == 0x1C0);
static_assert(offsetof(mcf5407_t, PP) == 0x244);
static_assert(offsetof(mcf5407_t, MBUS) == 0x280);
static_assert(offsetof(mcf5407_t, DMA) == 0x300);
static_assert(sizeof(mcf5407_t) == 0x400);
